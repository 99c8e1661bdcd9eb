#include "tools/log/LogParts.h"

#include <algorithm>

namespace NimaPost {

bool LogPart::HasThread(std::uint32_t thread) const {
    return std::binary_search(threads.begin(), threads.end(), thread);
}

} // namespace NimaPost
