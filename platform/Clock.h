#pragma once

/// Win32-style clocks over POSIX. Their results are not normalised: callers print them as they are.

#include <cstdint>
#include <ctime>

#include <Diagnostics/Types.h>

/// The local time: the C library's broken-down fields as they are, and the microseconds cut to 16 bits.
void _get_local_time_helper(_SYSTEMTIME* out);

/// The performance counter: seconds plus nanoseconds of the monotonic clock, unscaled. Inline, since every
/// line, record and ring event reads it.
inline void _query_performance_counter_helper(_LARGE_INTEGER* out) {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    out->QuadPart = static_cast<std::int64_t>(now.tv_sec) + static_cast<std::int64_t>(now.tv_nsec);
}

/// Always 1000000.
void _query_performance_frequency_helper(_LARGE_INTEGER* out);

namespace Nima::Common::System::OS::Diagnostics {

/// The counter's frequency, read once at load.
struct CStopwatch {
    static std::int64_t sFrequency;
};

/// The same number, for code that stamps trace lines.
extern std::int64_t g_TSFrequency;

} // namespace Nima::Common::System::OS::Diagnostics
