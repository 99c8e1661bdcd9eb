#pragma once

#include <ctime>

#include <unistd.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Lets other threads run for a moment, those of lower priority too, which a mere yield would not. Leaves
/// errno alone, also where a signal ends the moment: a writer that waits has not formatted its caller's "%m"
/// yet.
inline void BriefPause() {
    const timespec moment{0, 50000};
    ::clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
}

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
