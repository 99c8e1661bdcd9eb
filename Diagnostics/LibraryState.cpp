/// Every object that the library builds at load, in the order of construction; they end in reverse order at
/// unload. Nothing else of the library runs at load: devices and shared memory are created on first use.
///
/// The end of the process is delicate, since other threads may still be tracing. The slots turn late callers
/// away (`StaticSlot`). The registry's table and lock stay usable for good, because the default log is
/// released after nearly everything else has gone, and its last lines must reach the file.

#include "Diagnostics/EventLog/EventLogState.h"
#include "Diagnostics/ForkHandlers.h"
#include "Diagnostics/RealTime/RealTimeTrace.h"
#include "Diagnostics/RealTime/TimerHardware.h"
#include "Diagnostics/RealTime/TraceMemory.h"
#include "Diagnostics/TraceImpl.h"
#include "Diagnostics/TraceRegistry.h"
#include "Diagnostics/TraceServicesImpl.h"
#include "Diagnostics/Triage/CrashPolicy.h"
#include "Diagnostics/Triage/StandardTriageCallback.h"
#include "platform/Cancellation.h"
#include "platform/Clock.h"
#include "platform/NeverDestroyed.h"
#include "platform/StaticSlot.h"

#include <Diagnostics/TraceApi.h>

// Before any object of a host that links the library in, whatever the order of the object files.
#define NIMA_BUILT_AT_LOAD __attribute__((init_priority(101)))

namespace Nima::Common::System::OS::Diagnostics {

constinit StaticLockStruct g_SysTraceLock;
NIMA_BUILT_AT_LOAD TarnTraceHardware gTarnTraceHardware;
NIMA_BUILT_AT_LOAD UserModeTimerHw g_UserModeTimer;
constinit StaticLockStruct g_TraceMemoryLock;
constinit OwnedLock g_CrashLock;
constinit NeverDestroyed<StandardExceptionTriageCallback> g_StandardExceptionTriageCallback;
constinit StaticSlot<TraceSet> traceSet;
constinit StaticSlot<TraceServicesImpl> gConfigHelper;
constinit StaticLockStruct g_TraceMapLock;
constinit StaticSlot<NimaTrace> _TraceFactory;
constinit OwnedLock g_EventLogCallbackLock;

constinit std::int64_t CStopwatch::sFrequency = 0;
constinit std::int64_t g_TSFrequency = 0;

namespace {

constinit NeverDestroyed<TraceMap> g_TraceMap;

/// Creates the device table, and at the end writes out what devices still hold back: a host that ends without
/// releasing its handles loses nothing.
class DeviceTableKeeper {
  public:
    DeviceTableKeeper() { g_TraceMap.Build(); }
    DeviceTableKeeper(const DeviceTableKeeper&) = delete;
    DeviceTableKeeper& operator=(const DeviceTableKeeper&) = delete;
    ~DeviceTableKeeper() {
        const CancellationDelay delay;
        TraceDeviceFlushAll(false);
    }
};

struct FrequencyReading {
    FrequencyReading() {
        _LARGE_INTEGER frequency;
        _query_performance_frequency_helper(&frequency);
        CStopwatch::sFrequency = frequency.QuadPart;
        g_TSFrequency = frequency.QuadPart;
    }
};

struct CrashSemaphoreKeeper {
    CrashSemaphoreKeeper() { CrashHandles::BuildSemaphore(); }
    CrashSemaphoreKeeper(const CrashSemaphoreKeeper&) = delete;
    CrashSemaphoreKeeper& operator=(const CrashSemaphoreKeeper&) = delete;
    ~CrashSemaphoreKeeper() { CrashHandles::EndSemaphore(); }
};

struct StandardCallbackBuilder {
    StandardCallbackBuilder() { g_StandardExceptionTriageCallback.Build(); }
};

struct CrashEventKeeper {
    CrashEventKeeper() { CrashHandles::BuildEvent(); }
    CrashEventKeeper(const CrashEventKeeper&) = delete;
    CrashEventKeeper& operator=(const CrashEventKeeper&) = delete;
    ~CrashEventKeeper() { CrashHandles::EndEvent(); }
};

struct ForkHandlersRegistration {
    ForkHandlersRegistration() { RegisterForkHandlers(); }
};

NIMA_BUILT_AT_LOAD ForkHandlersRegistration forkHandlersRegistration;
NIMA_BUILT_AT_LOAD CrashSemaphoreKeeper crashSemaphoreKeeper;
NIMA_BUILT_AT_LOAD StandardCallbackBuilder standardCallbackBuilder;
NIMA_BUILT_AT_LOAD CrashEventKeeper crashEventKeeper;
NIMA_BUILT_AT_LOAD StaticSlotKeeper<TraceSet> traceSetKeeper(traceSet);
NIMA_BUILT_AT_LOAD StaticSlotKeeper<TraceServicesImpl> configHelperKeeper(gConfigHelper);
NIMA_BUILT_AT_LOAD DeviceTableKeeper deviceTableKeeper;
NIMA_BUILT_AT_LOAD FrequencyReading frequencyReading;
NIMA_BUILT_AT_LOAD StaticSlotKeeper<NimaTrace> traceFactoryKeeper(_TraceFactory, "Nima.Common.System.OS");

} // namespace

TraceMap& Devices() {
    return g_TraceMap.get();
}

} // namespace Nima::Common::System::OS::Diagnostics
