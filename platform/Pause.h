#pragma once

#include <ctime>

#include <unistd.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Lets other threads run for a moment, even those of lower priority, for which a mere yield is not enough.
/// Leaves errno alone, even if a signal ends the pause: a waiting writer has not yet formatted its caller's
/// "%m".
inline void BriefPause() {
    const timespec moment{0, 50000};
    ::clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
}

/// A moment that lies the given time ahead, by the clock that nobody sets.
class Deadline {
  public:
    explicit Deadline(int milliseconds) {
        ::clock_gettime(CLOCK_MONOTONIC, &end_);
        end_.tv_sec += milliseconds / 1000;
        end_.tv_nsec += milliseconds % 1000 * 1000000L;
        if (end_.tv_nsec >= 1000000000L) {
            end_.tv_nsec -= 1000000000L;
            ++end_.tv_sec;
        }
    }
    bool HasPassed() const {
        timespec now{};
        ::clock_gettime(CLOCK_MONOTONIC, &now);
        return now.tv_sec != end_.tv_sec ? now.tv_sec > end_.tv_sec : now.tv_nsec >= end_.tv_nsec;
    }

  private:
    timespec end_{};
};

/// Tells the processor that the thread is waiting for another one.
inline void RelaxProcessor() {
#if defined(__x86_64__) || defined(__i386__)
    __builtin_ia32_pause();
#elif defined(__arm__) || defined(__aarch64__)
    asm volatile("yield");
#endif
}

/// Sleeps the whole time, whatever signals arrive.
inline void SleepSeconds(unsigned seconds) {
    while (seconds > 0) {
        seconds = ::sleep(seconds);
    }
}

} // namespace Nima::Common::System::OS::Diagnostics
