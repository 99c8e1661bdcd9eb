/// Tracers, the registry and the services, seen through the public interface.

#include "tests/support/Sandbox.h"
#include "tests/support/TraceDevices.h"

#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdarg>
#include <cstring>
#include <deque>
#include <map>
#include <memory>
#include <thread>

#include <pthread.h>
#include <unistd.h>

#include <Diagnostics/MemoryQueue.h>
#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/RollingLogFile.h>
#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceServices.h>

namespace Nima::Testing {

using namespace Nima::Common::System::OS::Diagnostics;

namespace {

int ConfigureLog(const wchar_t* file = L"log", unsigned size = 1 << 24) {
    return TraceServices::ConfigureDefaultLog(file, size, 0, true);
}

/// The default log's lines from that level on, without calibration lines.
std::vector<std::string> Logged(const std::string& file = "log") {
    TraceDeviceFlushAll(false);
    std::vector<std::string> texts;
    for (std::string line : Lines(ReadFile(file))) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        const std::size_t text = line.find("> <");
        if (text != std::string::npos && line.find("<CAL>") == std::string::npos) {
            texts.push_back(line.substr(text + 2));
        }
    }
    return texts;
}

using Texts = std::vector<std::string>;

const unsigned char* Raw(const char* text) {
    return reinterpret_cast<const unsigned char*>(text);
}

using Writer = void (NimaTrace::*)(const char* format, va_list arguments);

/// Through a pointer, since the compiler refuses formats that it sees are none.
void WriteList(NimaTrace* trace, Writer writer, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    (trace->*writer)(format, arguments);
    va_end(arguments);
}

void WriteAtEveryLevel(NimaTrace& trace) {
    trace.WriteFatalV("f");
    trace.WriteErrorV("e");
    trace.WriteWarnV("w");
    trace.WritePerfV("p");
    trace.WriteInfoV("i");
    trace.WriteDebugV("d");
}

} // namespace

class Tracers : public Sandbox {};

TEST_F(Tracers, TheEffectiveLevelSaysWhatIsWritten) {
    ASSERT_EQ(ConfigureLog(), 0);
    NimaTrace trace("T");
    const std::map<int, std::string> written = {{110001, ""},      {110000, "f"},    {70001, "f"},
                                                {70000, "fe"},     {60000, "few"},   {55001, "few"},
                                                {55000, "fewp"},   {40000, "fewpi"}, {30001, "fewpi"},
                                                {30000, "fewpid"}, {-5, "fewpid"}};
    EXPECT_EQ(TraceGetEffectiveLevel(), 60000);
    std::size_t seen = 0;
    for (const auto& [level, expected] : written) {
        TraceSetEffectiveLevel(level);
        EXPECT_EQ(TraceGetEffectiveLevel(), level);
        WriteAtEveryLevel(trace);
        const Texts all = Logged();
        std::string letters;
        for (; seen < all.size(); ++seen) {
            letters += all[seen].back();
        }
        EXPECT_EQ(letters, expected) << level;
    }
}

TEST_F(Tracers, LinesReadAsDocumented) {
    ASSERT_EQ(ConfigureLog(), 0);
    TraceSetEffectiveLevel(0);
    NimaTrace trace("Scanner");
    trace.WriteWarnV("jam at %d", 3);
    WriteList(&trace, &NimaTrace::WriteWarn, "%s", "list");
    trace.WritePerf(Raw("raw bytes"), 9);
    trace.WriteInfo("tag", Raw("tagged\n"), 7);
    WriteList(&trace, &NimaTrace::WriteDebug, nullptr, 1);
    trace.WriteDebugV("%s", "");
    trace.WriteFatal(nullptr, 5);
    trace.WriteFatal(Raw("x"), 0);
    trace.WriteFatal("tag", Raw("x"), -2);
    EXPECT_EQ(Logged(), (Texts{"<WARN> <Scanner> jam at 3", "<WARN> <Scanner> list",
                               "<PERF> <Scanner> raw bytes", "<INFO> <Scanner> tag::tagged"}));
    EXPECT_EQ(CountOf(ReadFile("log"), "<0x"), 5U) << "one header per line, the calibration line's included";
}

TEST_F(Tracers, LongLinesAreCutToTheBuffer) {
    ASSERT_EQ(ConfigureLog(), 0);
    NimaTrace trace("T");
    const std::string body(1500, 'b');
    trace.WriteErrorV("%s", body.c_str());
    trace.WriteError(body.c_str(), Raw("dropped"), 7);
    NimaTrace longNamed(std::string(1500, 'n').c_str());
    longNamed.WriteErrorV("%s", "x");
    longNamed.WriteError(Raw("dropped"), 7);
    const Texts lines = Logged();
    ASSERT_EQ(lines.size(), 4U);
    EXPECT_EQ(lines[0], ("<ERROR> <T> " + body).substr(0, 1023));
    // The whole buffer is written as one line, including its own header and its terminating zero.
    EXPECT_EQ(lines[1].substr(0, 20), "<ERROR> <T> bbbbbbbb");
    EXPECT_EQ(lines[1].back(), '\0');
    EXPECT_EQ(CountOf(lines[1] + lines[3], "dropped"), 0U);
    EXPECT_EQ(lines[2], ("<ERROR> <" + std::string(1500, 'n')).substr(0, 1023));
    EXPECT_EQ(lines[3].back(), '\0');
    EXPECT_EQ(CountOf(ReadFile("log"), std::string(1, '\0')), 2U);
}

TEST_F(Tracers, AFailingFormatterLeaksNoEarlierLine) {
    ASSERT_EQ(ConfigureLog(), 0);
    NimaTrace trace("T");
    trace.WriteErrorV("%s", std::string(900, 's').c_str());
    trace.WriteErrorV("half %ls", L"\x4e2d");
    const Texts lines = Logged();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[1].size(), 1024U);
    EXPECT_EQ(lines[1].substr(0, 16), "<ERROR> <T> half");
    EXPECT_EQ(lines[1].find('s'), std::string::npos);
}

TEST_F(Tracers, AHostsFormatMayCountWhereverItStands) {
    InGoodChild([] {
        ASSERT_EQ(ConfigureLog(), 0);
        NimaTrace trace("T");
        int before = 0;
        char tray[] = "tray%n %d"; // in writable memory, as with a host that composes its formats
        WriteList(&trace, &NimaTrace::WriteError, tray, &before, 3);
        int beforeTheFailure = 0;
        char sheet[] = "sheet%n %ls";
        WriteList(&trace, &NimaTrace::WriteError, sheet, &beforeTheFailure, L"\x4e2d");
        EXPECT_EQ(before, 4);
        EXPECT_EQ(beforeTheFailure, 5);
    });
    const Texts lines = Logged();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0], "<ERROR> <T> tray 3");
    EXPECT_EQ(lines[1].substr(0, 17), "<ERROR> <T> sheet");
}

TEST_F(Tracers, ATracerBindsToALogThatComesLater) {
    NimaTrace early("early");
    early.WriteErrorV("dropped");
    EXPECT_FALSE(early.Initialized());
    ASSERT_EQ(ConfigureLog(), 0);
    EXPECT_TRUE(early.Initialized());
    early.WriteErrorV("one");
    early.Flush();
    EXPECT_EQ(CountOf(ReadFile("log"), "<ERROR> <early> one\r\n"), 1U);
    // Holder and tracer hold one reference each, besides the registry's.
    EXPECT_EQ(TraceServices::ReleaseDefaultLog(), 2);
    early.WriteErrorV("two");
    EXPECT_EQ(Logged(), (Texts{"<ERROR> <early> one", "<ERROR> <early> two"}));
}

// A creation under any name rebinds every tracer, and a tracer releases its reference before it looks the
// device up.
TEST_F(Tracers, ATracerAloneDoesNotKeepTheLogThroughACreation) {
    ASSERT_EQ(ConfigureLog(), 0);
    NimaTrace trace("T");
    trace.WriteErrorV("one");
    EXPECT_EQ(TraceServices::ReleaseDefaultLog(), 2);
    TRACE_DEVICE_HANDLE other = CreatedQueue(L"Other");
    EXPECT_EQ(GetTraceDeviceCount(), 1);
    EXPECT_FALSE(trace.Initialized());
    EXPECT_EQ(TraceDeviceRelease(other), 0);
}

// Longer than a writer keeps looking before it queues up.
TEST_F(Tracers, AWriterWaitsForWhoeverHoldsTheTracersLock) {
    ASSERT_EQ(ConfigureLog(), 0);
    NimaTrace trace("T");
    std::atomic<bool> written{false};
    trace.lock();
    std::thread writer([&] {
        trace.WriteErrorV("x");
        written = true;
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    EXPECT_FALSE(written);
    trace.unlock();
    writer.join();
    EXPECT_EQ(Logged(), (Texts{"<ERROR> <T> x"}));
}

TEST_F(Tracers, ADestroyedTracerHasFlushedItsDevice) {
    ASSERT_EQ(ConfigureLog(), 0);
    {
        NimaTrace trace("T");
        trace.WriteErrorV("last words");
    }
    EXPECT_EQ(CountOf(ReadFile("log"), "last words"), 1U);
    EXPECT_EQ(TraceServices::ReleaseDefaultLog(), 0);
    EXPECT_EQ(GetTraceDeviceCount(), 0);
}

TEST_F(Tracers, TheSelfTestUsesTheLibrarysOwnTracer) {
    ASSERT_EQ(ConfigureLog(), 0);
    TraceSetEffectiveLevel(0);
    TraceTest(7, "x");
    Texts expected;
    for (const std::string level : {"FATAL", "ERROR", "WARN", "INFO", "PERF", "DEBUG"}) {
        expected.push_back(std::string("<").append(level).append("> <Nima.Common.System.OS> Trace Test of ") +
                           level + " level x");
    }
    EXPECT_EQ(Logged(), expected);
}

// A tracer that first writes while the log is being created is bound by one or the other, whichever comes
// first.
TEST_F(Tracers, NoTracerIsForgottenWhenTheLogComesUp) {
    for (int round = 0; round < 50; ++round) {
        {
            std::deque<NimaTrace> tracers;
            Threads threads;
            for (int t = 0; t < 4; ++t) {
                threads.emplace_back([&trace = tracers.emplace_back("T"), t] {
                    if (t % 2 == 0) {
                        trace.WriteErrorV("first");
                    } else {
                        trace.Initialized();
                    }
                });
            }
            ASSERT_EQ(ConfigureLog(), 0);
            threads.clear();
            for (NimaTrace& trace : tracers) {
                EXPECT_TRUE(trace.Initialized());
            }
            TraceServices::ReleaseDefaultLog();
        }
        EXPECT_EQ(GetTraceDeviceCount(), 0);
    }
}

class Registry : public Sandbox {};

TEST_F(Registry, ReferencesAreCountedAsDocumented) {
    TRACE_DEVICE_HANDLE first = Created(DeviceConfig(TRACE_DEVICE_CONSOLE, L"A"));
    // An existing name keeps its device and its class.
    TRACE_DEVICE_HANDLE second = CreatedQueue(L"A");
    EXPECT_EQ(first, second);
    EXPECT_EQ(GetTraceDeviceCount(), 1);
    EXPECT_EQ(TraceDeviceFind(L"A", &second), 4);
    EXPECT_EQ(TraceDeviceRelease(first), 3);
    EXPECT_EQ(TraceDeviceRelease(first), 2);
    EXPECT_EQ(TraceDeviceRelease(first), 0);
    EXPECT_EQ(GetTraceDeviceCount(), 0);
    EXPECT_EQ(TraceDeviceFind(L"A", &second), -1);
    EXPECT_EQ(second, nullptr);
}

TEST_F(Registry, BadArgumentsAreRefusedAndLeaveNothing) {
    TRACE_DEVICE_HANDLE device = nullptr;
    _TraceConfig config = DeviceConfig(2, L"A");
    for (const int type : {0, 2, 5, -1, 1 << 30}) {
        config.type = type;
        device = reinterpret_cast<TRACE_DEVICE_HANDLE>(&config);
        EXPECT_EQ(TraceDeviceCreate(&config, &device), 22) << type;
        EXPECT_EQ(device == nullptr, type != 0) << "untouched only if nothing was looked up";
    }
    config = LogConfig(L"A", L"no/such/folder/log");
    device = reinterpret_cast<TRACE_DEVICE_HANDLE>(&config);
    EXPECT_EQ(TraceDeviceCreate(&config, &device), ENOENT);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(TraceDeviceFind(L"A", &device), -1);
    EXPECT_EQ(GetTraceDeviceCount(), 0);
    CreateTraceFilter(L"absent.ini", L"section");
    EXPECT_TRUE(Listing(".").empty());
}

// A caller that passes null gets an error and lives.
TEST_F(Registry, NullIsNoReasonToDie) {
    _TraceConfig config = DeviceConfig(TRACE_DEVICE_CONSOLE, nullptr);
    TRACE_DEVICE_HANDLE device = nullptr;
    EXPECT_EQ(TraceDeviceCreate(nullptr, &device), 22);
    EXPECT_EQ(TraceDeviceCreate(&config, &device), 22);
    config.name = L"A";
    EXPECT_EQ(TraceDeviceCreate(&config, nullptr), 22);
    EXPECT_EQ(TraceDeviceFind(nullptr, &device), -1);
    EXPECT_EQ(TraceDeviceFind(L"A", nullptr), -1);
    EXPECT_EQ(TraceDeviceRelease(nullptr), 22);
    EXPECT_EQ(TraceDeviceWrite(nullptr, "x", 1), 1);
    EXPECT_EQ(TraceDeviceWriteRaw(nullptr, "x", 1), 1);
    EXPECT_EQ(TraceDeviceReInit(nullptr, nullptr), 0);
    EXPECT_EQ(TraceDeviceFlush(nullptr), 0);
    EXPECT_EQ(CreateUUID(nullptr, 16), 22);
    EXPECT_EQ(TraceFormatHeader(nullptr, 200, 2, 7, nullptr), 0);
    EXPECT_EQ(TraceFormatPerfTag(nullptr, 200, "a", true, "b", "c", "d", "e", "f"), 1);
    CreateTraceFilter(nullptr, nullptr);
    GetRTSCDFrequency(nullptr);
    GetRTSCDValue(nullptr);
}

TEST_F(Registry, ShutDownClosesAndACreationOpensAgain) {
    ASSERT_EQ(ConfigureLog(), 0);
    NimaTrace trace("T");
    trace.WriteErrorV("before");
    TraceServices::ShutdownTrace(true);
    trace.WriteErrorV("while closed");
    TraceDeviceFlushAll(true);
    ASSERT_EQ(ConfigureLog(), 0);
    trace.WriteErrorV("after");
    EXPECT_EQ(Logged(), (Texts{"<ERROR> <T> before", "<ERROR> <T> after"}));
}

TEST_F(Registry, PlainCallsTakeLengthsAsDocumented) {
    _TraceConfig config = LogConfig(L"A", L"log");
    TRACE_DEVICE_HANDLE log = Created(config);
    EXPECT_EQ(TraceDeviceFlush(log), 1);
    const std::size_t start = ReadFile("log").size();
    EXPECT_EQ(TraceDeviceWriteRaw(log, "raw", 3), 1);
    EXPECT_EQ(TraceDeviceWriteRaw(log, "raw", 0), 0);
    EXPECT_EQ(TraceDeviceWriteRaw(log, "raw", -1), 1);
    EXPECT_EQ(TraceDeviceWriteRaw(log, nullptr, 3), 1);
    EXPECT_EQ(TraceDeviceWrite(log, "x", 0), 0);
    EXPECT_EQ(TraceDeviceWrite(log, nullptr, -1), 1);
    EXPECT_EQ(TraceDeviceWrite(log, "", -1), 1);
    EXPECT_EQ(TraceDeviceWrite(log, "abc", -1), 1);
    EXPECT_EQ(TraceDeviceWrite(log, "abc", 2), 1);
    EXPECT_EQ(TraceDeviceFlush(log), 1);
    const Texts lines = Lines(ReadFile("log").substr(start));
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0], "raw\r");
    EXPECT_EQ(lines[1].substr(lines[1].find("> ")), "> abc\r");
    EXPECT_EQ(lines[2].substr(lines[2].find("> ")), "> ab\r");
    config.settings.rollingLogFile.fileName = L"no/such/folder";
    EXPECT_EQ(TraceDeviceReInit(&config, log), 1);
    EXPECT_EQ(TraceDeviceWrite(log, "dropped", -1), 1);
    EXPECT_EQ(TraceDeviceRelease(log), 0);
}

TEST_F(Registry, HeadersAndPerformanceTags) {
    char buffer[200];
    std::memset(buffer, 'u', sizeof(buffer));
    EXPECT_EQ(TraceFormatHeader(buffer, 175, 2, 7, nullptr), 0);
    EXPECT_EQ(buffer[0], 'u');
    const int length = TraceFormatHeader(buffer, sizeof(buffer), 2, 7, nullptr);
    EXPECT_EQ(std::strlen(buffer), static_cast<std::size_t>(length));
    EXPECT_STREQ(std::strstr(buffer, "> ") + 2, "<ERROR> <ch:7> ");
    TraceFormatHeader(buffer, sizeof(buffer), 99, -1, "N");
    EXPECT_STREQ(std::strstr(buffer, "> ") + 2, "<DEBUG> <N> ");
    EXPECT_GT(TraceFormatHeader(buffer, 176, -99, 0, std::string(300, 'n').c_str()), 300);
    EXPECT_EQ(std::strlen(buffer), 175U);

    EXPECT_EQ(TraceFormatPerfTag(buffer, 200, "Job", true, "Begin", "Stage", "12", "ms", nullptr), 39);
    EXPECT_STREQ(buffer, " ::Job::True::Begin::Stage::12::ms::::\n");
    TraceFormatPerfTag(buffer, 200, "Job", false, "Begin", "Stage", "12", "ms", "more");
    EXPECT_STREQ(buffer, " ::Job::False::Begin::Stage::12::ms::more::\n");
    const std::string before = buffer;
    EXPECT_EQ(TraceFormatPerfTag(buffer, 200, nullptr, true, "b", "c", "d", "e", "f"), 0);
    EXPECT_EQ(TraceFormatPerfTag(buffer, 200, "a", true, "b", nullptr, "d", "e", "f"), 1);
    TraceFormatPerfTag(buffer, -5, "a", true, "b", "c", "d", "e", "f");
    EXPECT_EQ(buffer, before);

    std::int64_t frequency = 0;
    std::int64_t counter = 0;
    GetRTSCDFrequency(&frequency);
    GetRTSCDValue(&counter);
    EXPECT_EQ(frequency, 1000000);
    EXPECT_NE(counter, 0);
    unsigned char identifier[16] = {};
    EXPECT_EQ(CreateUUID(identifier, 15), 22);
    EXPECT_EQ(CreateUUID(identifier, 16), 0);
    EXPECT_EQ(identifier[7] & 0xF0, 0x40);
}

class Services : public Sandbox {};

TEST_F(Services, TheHolderReplacesItsHandleWithoutGivingItBack) {
    EXPECT_EQ(TraceServices::ReleaseDefaultLog(), 22);
    ASSERT_EQ(ConfigureLog(), 0);
    EXPECT_EQ(TraceServices::ReleaseDefaultLog(), 0);
    ASSERT_EQ(ConfigureLog(), 0);
    ASSERT_EQ(ConfigureLog(L"second"), 0);
    EXPECT_EQ(TraceServices::ReleaseDefaultLog(), 2);
    EXPECT_EQ(GetTraceDeviceCount(), 1);
    EXPECT_EQ(TraceServices::ConfigureDefaultLog(nullptr, 0, 0, true), 0)
        << "an existing device is only reopened";
}

TEST_F(Services, TheConsoleCanBeTheDefaultLog) {
    const std::string output = CapturedOutput([] {
        EXPECT_EQ(TraceServices::ConfigureDefaultLog(), 0);
        NimaTrace trace("T");
        trace.WriteWarnV("hello\n");
    });
    EXPECT_EQ(CountOf(output, "> <WARN> <T> hello\n"), 1U);
}

TEST_F(Services, CriticalMessagesBypassEveryDevice) {
    const auto print = [](const wchar_t* message) {
        return CapturedOutput([=] { WriteCriticalDbgMsg(message); });
    };
    EXPECT_EQ(print(L"disk full"), "disk full");
    EXPECT_EQ(print(L"100%% full, %s %n %"), "100% full, %s %n %");
    EXPECT_EQ(print(nullptr), "");
    EXPECT_EQ(print(std::wstring(3000, L'x').c_str()), std::string(1023, 'x'));
    TraceSetEffectiveLevel(70000);
    EXPECT_EQ(print(L"x"), "x");
    TraceSetEffectiveLevel(70001);
    EXPECT_EQ(print(L"x"), "");
}

TEST_F(Services, StandardStreamsAreRedirectedOrTheFailureTraced) {
    InGoodChild([] {
        ASSERT_EQ(ConfigureLog(), 0);
        ASSERT_TRUE(RedirectStdio(L"out", L"err"));
        std::printf("to out");
        std::fputs("to err", stderr);
        ASSERT_FALSE(RedirectStdio(L"out2", L"no/such/folder"));
        std::printf("to out2");
        ASSERT_FALSE(RedirectStdio(nullptr, nullptr));
    });
    EXPECT_EQ(ReadFile("out"), "to out");
    EXPECT_EQ(ReadFile("err"), "to err");
    EXPECT_EQ(ReadFile("out2"), "to out2");
    const std::string tracer = "<ERROR> <Nima.Common.System.OS> ";
    EXPECT_EQ(Logged(), (Texts{tracer + "Failed to redirect stderr!", tracer + "Failed to redirect stderr!",
                               tracer + "Failed to redirect stdout!"}));
}

// What a process leaves that ends without flushing, releasing or destroying anything.
TEST_F(Services, AProcessThatJustReturnsLosesNoLine) {
    InGoodChild([] {
        ASSERT_EQ(ConfigureLog(), 0);
        auto* leaked = new NimaTrace("leaked"); // NOLINT(clang-analyzer-cplusplus.NewDeleteLeaks)
        leaked->WriteErrorV("through a tracer that is never destroyed");
        static NimaTrace global("global");
        global.WriteErrorV("through a static tracer");
        TraceTest(0, "own");
        static TRACE_DEVICE_HANDLE other = Created(LogConfig(L"Other", L"other"));
        TraceDeviceWrite(other, "never released", -1);
        static NimaTrace* late = leaked;
        std::atexit([] { late->WriteErrorV("from an exit handler"); });
    });
    EXPECT_EQ(Logged().size(), 6U);
    EXPECT_EQ(CountOf(ReadFile("other"), "never released\r\n"), 1U);
}

TEST_F(Services, CancellingAThreadThatTracesLeavesNoLockHeld) {
    ASSERT_EQ(ConfigureLog(), 0);
    TraceSetEffectiveLevel(TRACE_THRESHOLD_WARN);
    NimaTrace trace("T");
    TraceDeviceFlushAll(true); // every line is now a system call, and each of those a cancellation point
    for (int round = 0; round < 20; ++round) {
        std::thread victim([&] {
            for (;;) {
                trace.WriteErrorV("x");
                NimaTrace own("own"); // its end flushes
                own.WriteErrorV("x");
                TRACE_DEVICE_HANDLE other = Created(LogConfig(L"Other", L"other"));
                TraceDeviceWrite(other, "x", 1);
                TraceDeviceRelease(other);
            }
        });
        ::usleep(2000);
        ASSERT_EQ(::pthread_cancel(victim.native_handle()), 0);
        victim.join();
    }
    trace.WriteErrorV("still works");
    TraceDeviceFlushAll(false);
    EXPECT_EQ(CountOf(ReadFile("log"), "<ERROR> <T> still works\r\n"), 1U) << "the previous line may be torn";
}

} // namespace Nima::Testing
