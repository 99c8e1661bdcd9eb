#include "tools/crash/StackTraceSource.h"

namespace NimaPost {

std::optional<StackTrace> StackTraceSource::ReadContent(FolderFile& file, InputFile& input) {
    return ReadStackTrace(input.ReadAll(kMostTextBytes), file.findings);
}

} // namespace NimaPost
