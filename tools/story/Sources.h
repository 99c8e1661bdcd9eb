#pragma once

#include "tools/axis/Source.h"

#include <cstdint>
#include <string_view>

namespace NimaPost {

/// The kind of a file, from what it begins with and its size; null for what is neither the library's nor
/// the program's.
const SourceRow* Recognise(std::string_view front, std::uint64_t size);

} // namespace NimaPost
