#pragma once

#include "Diagnostics/RealTime/SysTraceBuffer.h"

#include <atomic>

#include <Diagnostics/Lock.h>

namespace Nima::Common::System::OS::Diagnostics {

/// The live buffer, null until configured. Writers read it without a lock.
extern constinit std::atomic<SysTraceBuffer*> g_RTTrace;

/// Guards making and replacing the live buffer.
extern constinit StaticLockStruct g_SysTraceLock;

/// The library's own events, component 127, level 0.
enum SysTraceEvent : std::uint32_t {
    kFileDumpStarts = 0x1FC07532,
    kFileDumpRefused = 0x1FC07533,
    kFileDumpEnds = 0x1FC07534,
    kCallbackDumpWithoutCallback = 0x1FC07535,
    kCallbackDumpStarts = 0x1FC07536,
    kCallbackDumpRefused = 0x1FC07537,
    kCallbackDumpEnds = 0x1FC07538
};

} // namespace Nima::Common::System::OS::Diagnostics
