#include "Diagnostics/Guarded.h"
#include "Diagnostics/TraceImpl.h"
#include "Diagnostics/Triage/CrashPolicy.h"
#include "Diagnostics/Triage/StandardTriageCallback.h"
#include "catalogue/Failures.h"
#include "catalogue/OwnEvents.h"
#include "platform/Cancellation.h"
#include "platform/Text.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>

#include <Diagnostics/CrashApi.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceServices.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr unsigned long kMarkerHandling = Catalogue::IdOf(Catalogue::OwnTraceEvent::kFatalErrorHandling);
constexpr unsigned long kMarkerHandledBefore = Catalogue::IdOf(Catalogue::OwnTraceEvent::kSecondFailure);
constexpr unsigned long kMarkerExitTrapped = Catalogue::IdOf(Catalogue::OwnTraceEvent::kExitTrapped);

constexpr unsigned long kBackups = 2;
constexpr std::uint32_t kActionReboot = 0xC0430001;
constexpr const wchar_t* kDefaultDumpFile = L"C:\\logs\\ForcedUserCrashDump.dmp";

constexpr const char* kCaptured =
    "FATAL ERROR!!!  \r\n  Triage instructions at: https://nima.example/triage \r\n"
    "  You will need symbols (pdb's and .map files), OS revision number AND Drel revision number for "
    "triage.\r\n"
    "  Please READ the log files and crash logs (hint: use the native crash log for this crash).\r\n";
constexpr const char* kNotCaptured =
    "FATAL ERROR!!!  For some reason we did not capture a native crash log file, you may "
    "need to reproduce this...";

constinit std::atomic<bool> g_ExitTrapsEnabled{false};
constinit std::atomic<bool> g_ExitTrapRegistered{false};

void TraceFatal(const char* message) {
    const StaticSlot<NimaTrace>::Use tracer(_TraceFactory);
    if (tracer) {
        tracer->WriteFatalV("%s", message);
    }
}

void FlushWithForce() {
    const StaticSlot<NimaTrace>::Use tracer(_TraceFactory);
    if (tracer) {
        tracer->Flush(true);
    }
}

void Recover(const TriageCallback& callback) {
    std::uint32_t action = kActionReboot;
    const int decision =
        Guarded(0, [&] { return IsOkToAutoRecover(callback.errorCode(), callback.faultAddress(), &action); });
    wchar_t line[100] = {};
    _snwprintf_s_helper(line, std::size(line) - 1, std::size(line) - 1,
                        L"AutoRecover: OkToAutoRecover=%d, Action=0x%x\r\n", decision, action);
    WriteCriticalDbgMsg(line);
    FlushWithForce();
    // The `exit` that follows must not run the trap, which would wait for the lock that this thread holds.
    DisableExitTraps();
    if (decision != 0) {
        WriteCriticalDbgMsg(L"AutoRecover: Auto-rebooting after crash\r\n");
        RebootAfterCrash();
    }
}

void _HandleFatalCondition(TriageCallback* callback) {
    RTTrace(kMarkerHandling);
    if (g_FatalConditionHandled.exchange(true)) {
        RTTrace(kMarkerHandledBefore);
        FlushWithForce();
        WaitForDebug();
        return;
    }
    GuardedCall([=] { callback->LogFailure(); });
    const int captured = CaptureTriageData(g_CrashLogFile, kBackups, callback, g_TriageFilePath);
    TraceFatal(captured != 0 ? kCaptured : kNotCaptured);
    GuardedCall([=] {
        if (callback->GetDump() != 0) {
            GenerateCrashDump(g_CrashDumpFile != nullptr ? g_CrashDumpFile : kDefaultDumpFile, 3, 0);
        }
    });
    WaitForDebug();
    Recover(*callback);
}

int _DeviceFatalErrorImpl(long code, const char* file, int line, _EXCEPTION_POINTERS* pointers,
                          long extraCount, long* extraData) {
    const CancellationDelay delay; // even a thread that is being cancelled dies of its failure
    const auto code32 = static_cast<std::uint32_t>(code);
    {
        const StaticSlot<NimaTrace>::Use tracer(_TraceFactory);
        if (tracer && file != nullptr) {
            tracer->WriteFatalV("DeviceFatalError ErrorCode: %x : %s @ line %d\r\n", code32, file, line);
        } else if (tracer) {
            tracer->WriteFatalV("DeviceFatalError ErrorCode: %x, no file/line number provided!\r\n", code32);
        }
    }
    if (LockCrashHandler() == 0) {
        return 0;
    }
    // Whatever goes wrong from here on, the process ends with the code. The lock is never released.
    GuardedCall([=] {
        TriageCallback& callback = g_StandardExceptionTriageCallback.get();
        callback.SetAssertInfo(code, file, line, pointers, extraCount, extraData);
        _HandleFatalCondition(&callback);
    });
    DisableExitTraps();
    TraceServices::ShutdownTrace(true);
    std::exit(static_cast<int>(code));
}

/// Widens the words of the exported calls once; only the four that are kept are ever read.
int FailWith(int code, const char* file, int line, _EXCEPTION_POINTERS* pointers, int extraCount,
             const int32_t* extra) {
    constexpr int kMaxExtra = 4;
    long words[kMaxExtra] = {};
    const int count = extra != nullptr ? std::clamp(extraCount, 0, kMaxExtra) : 0;
    std::copy_n(extra, count, words);
    return _DeviceFatalErrorImpl(code, file, line, pointers, count, words);
}

void OnExit() {
    if (!g_ExitTrapsEnabled.load()) {
        return;
    }
    const CancellationDelay delay;
    RTTrace(kMarkerExitTrapped);
    if (LockCrashHandler() == 0) {
        return;
    }
    GuardedCall([] {
        TriageCallback& callback = g_StandardExceptionTriageCallback.get();
        callback.SetExceptionInfo(Catalogue::kProcessExit, Catalogue::kProcessExited, 0);
        _HandleFatalCondition(&callback);
    });
    ReleaseCrashHandler();
}

} // namespace

} // namespace Nima::Common::System::OS::Diagnostics

using namespace Nima::Common::System::OS::Diagnostics;

int DeviceFatalError(int code, const char* file, int line) {
    return FailWith(code, file, line, nullptr, 0, nullptr);
}

int DeviceFatalErrorExtra(int code, const char* file, int line, int extraCount, const int32_t* extra) {
    return FailWith(code, file, line, nullptr, extraCount, extra);
}

int DeviceFatalException(int code, const char* file, int line, _EXCEPTION_POINTERS* pointers) {
    return FailWith(code, file, line, pointers, 0, nullptr);
}

int DeviceFatalExceptionExtra(int code, const char* file, int line, _EXCEPTION_POINTERS* pointers,
                              int extraCount, const int32_t* extra) {
    return FailWith(code, file, line, pointers, extraCount, extra);
}

void EnableExitTraps(void) {
    if (g_ExitTrapsEnabled.load()) {
        return;
    }
    if (!g_ExitTrapRegistered.exchange(true)) {
        std::atexit(OnExit);
    }
    g_ExitTrapsEnabled.store(true);
    g_StandardExceptionTriageCallback.get().Init();
}

void DisableExitTraps(void) {
    g_ExitTrapsEnabled.store(false);
}
