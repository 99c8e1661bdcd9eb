#pragma once

#include <cstdint>

namespace NimaPost {

/// Nanoseconds since 1970 as if local time were UTC, which is how the library's own dates are read.
std::int64_t LocalTimeNow();

} // namespace NimaPost
