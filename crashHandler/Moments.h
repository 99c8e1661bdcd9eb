#pragma once

#include <ctime>

namespace CrashHandling {

/// How long to wait for something that makes no progress, in milliseconds, and how long in all.
constexpr long long kPatience = 500;
constexpr long long kMostPatience = 3000;
/// For what other threads write to reach the disk, in addition.
constexpr long long kDiskPatience = 30000;

/// Milliseconds of the monotonic clock.
inline long long Milliseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<long long>(now.tv_sec) * 1000 + now.tv_nsec / 1000000;
}

inline void PauseFor(long nanoseconds) {
    const timespec moment{0, nanoseconds};
    ::nanosleep(&moment, nullptr);
}

} // namespace CrashHandling
