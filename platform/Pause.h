#pragma once

#include <ctime>

#include <unistd.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Lets other threads run for a moment, those of lower priority too, which a mere yield would not.
inline void BriefPause() {
    const timespec moment{0, 50000};
    ::nanosleep(&moment, nullptr);
}

/// Sleeps the whole time, whatever signals arrive.
inline void SleepSeconds(unsigned seconds) {
    while (seconds > 0) {
        seconds = ::sleep(seconds);
    }
}

} // namespace Nima::Common::System::OS::Diagnostics
