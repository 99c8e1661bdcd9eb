#include "Diagnostics/Guarded.h"
#include "Diagnostics/Triage/FaultGenerators.h"
#include "platform/Handles.h"
#include "platform/Pause.h"
#include "platform/Text.h"

#include <atomic>
#include <cstdint>

#include <Diagnostics/CrashApi.h>
#include <Diagnostics/EventLog.h>
#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/TestHooksApi.h>
#include <Diagnostics/TraceServices.h>

using namespace Nima::Common::System::OS::Diagnostics;

namespace {

constexpr int kArmed = 1;
constexpr unsigned kSecondsToFailure = 500;
constexpr int kTestFailureCode = 0x00492345;

constexpr const wchar_t* kEventSource = L"Nima.Common.System.OS";
constexpr const wchar_t* kEventFile = L"__FILE__";
constexpr long kTestEventId = 0x00493813;

constinit std::atomic<void*> g_TestFailureEvent{nullptr};
constinit std::atomic<bool> g_InteractiveNativeCrashSimulator{false};
constinit std::atomic<std::uint32_t> g_CurrentBreakpoint{0};

void LogTestEvents() {
    EventLog::LogEvent(EVENT_TYPE_ERROR, kEventSource, kTestEventId, kEventFile, 61, nullptr, 0);
    wchar_t number[16] = {};
    _snwprintf_s_helper(number, std::size(number) - 1, std::size(number) - 1, L"%d", 66);
    const PayloadEntry entries[] = {
        {L"File", kEventFile},
        {L"Line", number},
        {L"Reason", L"Oh, I don't know, I just felt like logging an error with some payload."}};
    EventLog::LogEvent(EVENT_TYPE_ERROR, kEventSource, kTestEventId, kEventFile, 74, entries,
                       std::size(entries));
}

void* TestFailureThread(void* /*unused*/) {
    const bool interactive = g_InteractiveNativeCrashSimulator.load();
    SleepSeconds(kSecondsToFailure);
    // The count passed is larger than the array on purpose: no more than four words are ever read.
    const std::int32_t words[] = {15843, 223452, 3, 4};
    DeviceFatalErrorExtra(kTestFailureCode, "Diagnostics/TraceImpl", 58, 16, words);
    // Reached only if the fatal error returns.
    LogTestEvents();
    if (interactive) {
        _GenerateAccessViolation(nullptr);
        return nullptr;
    }
    for (;;) {
        _GenerateAccessViolation(nullptr);
        LogTestEvents();
    }
}

/// Converts a wide text into a zeroed buffer. Returns the formatter's result: the whole length, negative if
/// the text does not convert; 0 for null.
int Narrow(char* buffer, std::size_t size, const wchar_t* text) {
    return text != nullptr ? _snprintf_s_helper(buffer, size, size, "%ls", text) : 0;
}

void WriteAtAllLevels(NimaTrace& trace, const char* tag, const unsigned char* data, int length) {
    trace.WriteDebug(data, length);
    trace.WriteDebug(tag, data, length);
    trace.WriteInfo(data, length);
    trace.WriteInfo(tag, data, length);
    trace.WriteWarn(data, length);
    trace.WriteWarn(tag, data, length);
    trace.WriteError(data, length);
    trace.WriteError(tag, data, length);
    trace.WriteFatal(data, length);
    trace.WriteFatal(tag, data, length);
}

} // namespace

int XXX_TestAsyncFail(bool interactive) {
    const int mode = GetCrashMode();
    if (mode != kArmed) {
        return mode;
    }
    return Guarded(0, [=] {
        void* const replaced = g_TestFailureEvent.exchange(_create_event_helper(false, false, nullptr));
        if (replaced != nullptr) {
            _close_handle_helper(replaced);
        }
        g_InteractiveNativeCrashSimulator.store(interactive);
        void* const thread = _create_thread_helper(TestFailureThread, nullptr);
        const bool started = static_cast<thread_helper*>(static_cast<handle_helper*>(thread))->started();
        const int closed = _close_handle_helper(thread);
        return started ? closed : 0;
    });
}

int XXX_TestWaitForAsyncFail(void) {
    return GetCrashMode();
}

int XXX_TestEzTraceConfig(const wchar_t* fileName, unsigned int maxFileSize, unsigned int maxRollCount,
                          bool append) {
    return TraceServices::ConfigureDefaultLog(fileName, maxFileSize, maxRollCount, append);
}

int XXX_TestEzTraceRelease(void) {
    return TraceServices::ReleaseDefaultLog();
}

void XXX_HardwareBreakpoint(uint32_t value) {
    g_CurrentBreakpoint.exchange(value);
}

int XXX_TestEzLargeTraceWrites(const wchar_t* name, const wchar_t* tag, const unsigned char* data,
                               int length) {
    char narrowName[255] = {};
    char narrowTag[255] = {};
    const int nameLength = Narrow(narrowName, sizeof(narrowName), name);
    if (nameLength < 1) {
        return nameLength;
    }
    const int tagLength = Narrow(narrowTag, sizeof(narrowTag), tag);
    if (tagLength < 1) {
        return tagLength;
    }
    GuardedCall([&] {
        NimaTrace trace(narrowName);
        WriteAtAllLevels(trace, narrowTag, data, length);
    });
    return tagLength;
}

int XXX_TestNativeEventLogFeature(EventTypes type, const wchar_t* source, long id, const wchar_t* file,
                                  int line) {
    return EventLog::LogEvent(type, source, id, file, line, nullptr, 0);
}

int XXX_TestNativeEventVantorLogFeature(EventTypes type, unsigned long id, const wchar_t* source,
                                        const wchar_t* hashedContext, const wchar_t* nonHashedContext) {
    char narrowSource[32] = {};
    char hashed[256] = {};
    char nonHashed[256] = {};
    Narrow(hashed, sizeof(hashed), hashedContext);
    Narrow(nonHashed, sizeof(nonHashed), nonHashedContext);
    Narrow(narrowSource, sizeof(narrowSource), source);
    return Guarded(0, [&] {
        SimpleDiagnosticPayload payload(hashed, nonHashed);
        return EventLog::LogEvent(type, narrowSource, id, payload);
    });
}
