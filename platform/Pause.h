#pragma once

#include <ctime>

namespace Nima::Common::System::OS::Diagnostics {

/// Lets other threads run for a moment, those of lower priority too, which a mere yield would not.
inline void BriefPause() {
    const timespec moment{0, 50000};
    ::nanosleep(&moment, nullptr);
}

} // namespace Nima::Common::System::OS::Diagnostics
