#include "Diagnostics/Triage/CrashPolicy.h"

#include "catalogue/OwnEvents.h"
#include "platform/Handles.h"

#include <cerrno>

#include <Diagnostics/CrashApi.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/TraceServices.h>

constinit const wchar_t* g_CrashLogFile = nullptr;
constinit const wchar_t* g_TriageFilePath = nullptr;
constinit const wchar_t* g_CrashDumpFile = nullptr;

namespace Nima::Common::System::OS::Diagnostics {

constinit void* g_UMCrashSemaphore = nullptr;
constinit void* g_CrashedHandle = nullptr;
constinit std::atomic<bool> g_FatalConditionHandled{false};

namespace {

constexpr unsigned long kMarkerReboot = Catalogue::IdOf(Catalogue::OwnTraceEvent::kRecovery);
constexpr long kDebuggerTimeout = 30000;
constexpr int kWaitFailed = -1;

constinit std::atomic<std::int32_t> g_CrashCount{0};
constinit std::atomic<std::int32_t> g_WaitForDebug{0};
constinit std::atomic<std::int32_t> g_DebugWaiters{0};
constinit std::atomic<std::int32_t> g_CrashMode{0};

/// Would tell the next start that the reboot was wanted; this platform has no means for that.
int WriteAutoRecoverRebootingFlag(long /*flag*/) {
    return 0;
}

} // namespace

void CrashHandles::BuildSemaphore() {
    g_UMCrashSemaphore = _create_semaphore_helper(0, 1, 1, nullptr);
}

void CrashHandles::EndSemaphore() {
    _close_handle_helper(g_UMCrashSemaphore);
    g_UMCrashSemaphore = nullptr;
}

void CrashHandles::BuildEvent() {
    g_CrashedHandle = _create_event_helper(true, false, L"DrelCrashContinue");
}

void CrashHandles::EndEvent() {
    // Closing an event waits for those who wait on it, and they wait for a debugger.
    if (g_DebugWaiters.load() == 0) {
        _close_handle_helper(g_CrashedHandle);
        g_CrashedHandle = nullptr;
    }
}

void RenewCrashLock() {
    if (g_CrashLock.IsMine()) {
        return;
    }
    if (g_CrashLock.try_lock()) {
        g_CrashLock.unlock();
        return;
    }
    g_CrashLock.Renew();
    g_CrashCount.store(0);
    g_FatalConditionHandled.store(false);
}

void ContinueAfterCrash() {
    static_cast<event_helper*>(static_cast<handle_helper*>(g_CrashedHandle))->Set();
}

} // namespace Nima::Common::System::OS::Diagnostics

using namespace Nima::Common::System::OS::Diagnostics;

int LockCrashHandler(void) {
    g_CrashLock.lock();
    g_CrashCount.fetch_add(1);
    return 1;
}

int ReleaseCrashHandler(void) {
    std::int32_t before = g_CrashCount.load();
    do {
        if (before <= 0) {
            return EPERM; // nobody holds it
        }
    } while (!g_CrashCount.compare_exchange_weak(before, before - 1));
    return before > 1 ? 0 : g_CrashLock.unlock();
}

void WaitForDebugSetup(int flag) {
    g_WaitForDebug.exchange(flag);
}

void WaitForDebug(void) {
    if (g_WaitForDebug.load() == 0) {
        return;
    }
    g_DebugWaiters.fetch_add(1);
    while (g_CrashedHandle != nullptr &&
           _wait_handle_helper(g_CrashedHandle, kDebuggerTimeout) == kWaitFailed) {
    }
    g_DebugWaiters.fetch_sub(1);
}

int GetCrashMode(void) {
    return g_CrashMode.load();
}

void SetCrashMode(int mode) {
    g_CrashMode.exchange(mode);
}

int RebootAfterCrash(void) {
    RTTrace(kMarkerReboot);
    // Twice: the flag's two copies.
    WriteAutoRecoverRebootingFlag(1);
    WriteAutoRecoverRebootingFlag(1);
    TraceServices::ShutdownTrace(true);
    return 0;
}
