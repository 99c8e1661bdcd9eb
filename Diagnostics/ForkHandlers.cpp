#include "Diagnostics/ForkHandlers.h"

#include "Diagnostics/EventLog/EventLogState.h"
#include "Diagnostics/ForkedDevice.h"
#include "Diagnostics/RealTime/RealTimeTrace.h"
#include "Diagnostics/RealTime/RingBufferMgr.h"
#include "Diagnostics/RealTime/TraceMemory.h"
#include "Diagnostics/TraceImpl.h"
#include "Diagnostics/TraceRegistry.h"
#include "Diagnostics/TraceServicesImpl.h"
#include "Diagnostics/TracerLock.h"
#include "Diagnostics/Triage/CrashPolicy.h"
#include "platform/Cancellation.h"
#include "platform/OwnedLock.h"
#include "platform/Pause.h"

#include <cerrno>
#include <cstddef>

#include <pthread.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr int kPatienceForAll = 100;
constexpr int kPatienceForOne = 25;
constexpr std::size_t kLocks = 9;
constexpr std::size_t kMaxDevices = 64;

/// The fork in progress: what its thread uses, and which locks it holds.
struct Fork {
    OwnedLock one; ///< if two threads fork at once, only one takes the locks
    TraceServicesImpl* services = nullptr;
    TraceSet* set = nullptr;
    bool taken[kLocks] = {};
    bool devicesTaken[kMaxDevices] = {};
};

constinit Fork g_Fork;

/// Calls `visit` with each lock that guards more than a line, in the library's order but without those of
/// devices, and with the flag that says whether it is taken. Returns the device table's flag.
template <class Visit>
bool& ForEachLock(Visit visit) {
    bool* taken = g_Fork.taken;
    visit(g_EventLogCallbackLock, *taken++);
    if (g_Fork.services != nullptr) {
        visit(static_cast<LockStruct&>(*g_Fork.services), taken[0]);
    }
    if (g_Fork.set != nullptr) {
        visit(g_Fork.set->rebinding(), taken[1]);
        visit(g_Fork.set->lock(), taken[2]);
    }
    taken += 3;
    visit(TracerLock::KeepersLock(), *taken++);
    visit(g_SysTraceLock, *taken++);
    visit(g_TraceMemoryLock, *taken++);
    visit(g_RingBufferMgrLock, *taken++);
    visit(g_TraceMapLock, *taken);
    return *taken;
}

/// The same with the registered devices. `isNoted` is false for those for which there is no flag left: they
/// must not be taken.
template <class Visit>
void ForEachDevice(Visit visit) {
    std::size_t number = 0;
    for (const auto& [name, device] : Devices()) {
        const bool isNoted = number < kMaxDevices;
        bool none = false;
        visit(ForkedDevice(static_cast<CBaseTraceDevice&>(*device)),
              isNoted ? g_Fork.devicesTaken[number] : none, isNoted);
        ++number;
    }
}

template <class Lock>
bool IsMine(const Lock& /*lock*/) {
    return false;
}

bool IsMine(const OwnedLock& lock) {
    return lock.IsMine();
}

template <class Lock>
bool TryFor(Lock& lock, const Deadline& all) {
    if (IsMine(lock)) {
        return false;
    }
    const Deadline own(kPatienceForOne);
    while (!lock.try_lock()) {
        if (all.HasPassed() || own.HasPassed()) {
            return false;
        }
        BriefPause();
    }
    return true;
}

template <class Lock>
void GiveBack(Lock& lock, bool& taken) {
    if (taken) {
        taken = false;
        lock.unlock();
    }
}

/// In the child only the calling thread can hold a lock.
template <class Lock>
void MakeFree(Lock& lock, bool& taken) {
    if (taken) {
        GiveBack(lock, taken);
    } else if (!IsMine(lock)) {
        lock.Renew();
    }
}

void BeforeFork() {
    const CancellationDelay delay;
    const int error = errno;
    const Deadline all(kPatienceForAll);
    if (TryFor(g_Fork.one, all)) {
        g_Fork.services = gConfigHelper.Enter();
        g_Fork.set = traceSet.Enter();
        const bool hasTable = ForEachLock([&](auto& lock, bool& taken) { taken = TryFor(lock, all); });
        if (hasTable) {
            ForEachDevice([&](ForkedDevice device, bool& taken, bool isNoted) {
                taken = isNoted && TryFor(device.lock(), all);
                if (taken) {
                    device.WriteOut();
                }
            });
        }
    }
    errno = error;
}

void AfterForkInParent() {
    if (!g_Fork.one.IsMine()) {
        return;
    }
    const bool hasTable = g_Fork.taken[kLocks - 1];
    if (hasTable) {
        ForEachDevice(
            [](ForkedDevice device, bool& taken, bool /*isNoted*/) { GiveBack(device.lock(), taken); });
    }
    ForEachLock([](auto& lock, bool& taken) { GiveBack(lock, taken); });
    gConfigHelper.Leave();
    traceSet.Leave();
    g_Fork.one.unlock();
}

// A lock that was not taken belonged to a thread that does not exist here, or to another fork. Its holder
// kept it all that time, so it was waiting for something, and what the lock guards was consistent. Only
// devices are not trusted that far.
void AfterForkInChild() {
    if (!g_Fork.one.IsMine()) {
        g_Fork.services = gConfigHelper.Enter();
        g_Fork.set = traceSet.Enter();
        for (bool& taken : g_Fork.taken) {
            taken = false;
        }
        for (bool& taken : g_Fork.devicesTaken) {
            taken = false;
        }
    }
    ForEachDevice([](ForkedDevice device, bool& taken, bool /*isNoted*/) {
        if (!taken) {
            device.StartAfresh();
        }
        MakeFree(device.lock(), taken);
    });
    ForEachLock([](auto& lock, bool& taken) { MakeFree(lock, taken); });
    if (g_Fork.set != nullptr) {
        g_Fork.set->ForgetRebinding();
    }
    TracerLock::RenewAll();
    RenewRingLocks();
    RenewCrashLock();
    gConfigHelper.ForgetUsers();
    traceSet.ForgetUsers();
    _TraceFactory.ForgetUsers();
    g_Fork.one.Renew();
}

} // namespace

void RegisterForkHandlers() {
    ::pthread_atfork(BeforeFork, AfterForkInParent, AfterForkInChild);
}

} // namespace Nima::Common::System::OS::Diagnostics
