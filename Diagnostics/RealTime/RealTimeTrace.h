#pragma once

#include "Diagnostics/RealTime/SysTraceBuffer.h"
#include "catalogue/OwnEvents.h"

#include <atomic>
#include <functional>

#include <Diagnostics/Lock.h>

namespace Nima::Common::System::OS::Diagnostics {

/// The live buffer, null until configured. Writers read it without a lock.
extern constinit std::atomic<SysTraceBuffer*> g_RTTrace;

/// Guards creation and replacement of the live buffer.
extern constinit StaticLockStruct g_SysTraceLock;

/// Applies an operation to the live buffer, or to a temporary one over the segment. Result as
/// `ClearSysTrace`.
int WithBuffer(const std::function<void(SysTraceBuffer&)>& operation);

/// The library's own events, component 127, level 0.
enum SysTraceEvent : std::uint32_t {
    kFileDumpStarts = Catalogue::IdOf(Catalogue::OwnTraceEvent::kFileDumpStarts),
    kFileDumpRefused = Catalogue::IdOf(Catalogue::OwnTraceEvent::kFileDumpRefused),
    kFileDumpEnds = Catalogue::IdOf(Catalogue::OwnTraceEvent::kFileDumpEnds),
    kCallbackDumpWithoutCallback = Catalogue::IdOf(Catalogue::OwnTraceEvent::kCallbackDumpWithoutCallback),
    kCallbackDumpStarts = Catalogue::IdOf(Catalogue::OwnTraceEvent::kCallbackDumpStarts),
    kCallbackDumpRefused = Catalogue::IdOf(Catalogue::OwnTraceEvent::kCallbackDumpRefused),
    kCallbackDumpEnds = Catalogue::IdOf(Catalogue::OwnTraceEvent::kCallbackDumpEnds)
};

} // namespace Nima::Common::System::OS::Diagnostics
