/// How a process dies on purpose. Every case runs in a child; its files and its status are checked.

#include "tests/support/Sandbox.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <stdexcept>
#include <thread>

#include <pthread.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Diagnostics/CrashApi.h>
#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceServices.h>

namespace {

int g_Decision = 1;

void Note(const char* text) {
    std::ofstream("hooks", std::ios::app) << text;
}

} // namespace

// A host's own hooks, which the library calls instead of its own.
extern "C" int IsOkToAutoRecover(long code, long faultAddress, std::uint32_t* action) {
    char text[100];
    std::snprintf(text, sizeof(text), "recover %lx %lx %x\n", code, faultAddress, *action);
    Note(text);
    *action = 0x55;
    if (g_Decision < 0) {
        throw std::runtime_error("the host's trouble");
    }
    return g_Decision;
}

extern "C" int GenerateCrashDump(const wchar_t* path, int type, int extra) {
    char text[100];
    std::snprintf(text, sizeof(text), "dump %ls %d %d\n", path, type, extra);
    Note(text);
    return 0;
}

namespace Nima::Testing {

using namespace Nima::Common::System::OS::Diagnostics;

namespace {

const std::string kTracer = "<FATAL> <Nima.Common.System.OS> ";

/// A child with a default log, crash log and triage folder, whose output goes to "out".
int StatusOf(const std::function<void()>& action) {
    return InChild([&] {
        RedirectStdio(L"out", L"err");
        TraceServices::ConfigureDefaultLog(L"trace.log", 1 << 20, 0, true);
        SysTraceConfigure();
        g_CrashLogFile = L"crash.txt";
        g_TriageFilePath = L".";
        std::printf("-- ");
        action();
    });
}

int ExitOf(const std::function<void()>& action) {
    const int status = StatusOf(action);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string Trace() {
    return LogTexts("trace.log");
}

std::string Output() {
    const std::string out = ReadFile("out");
    return out.substr(out.find("-- ") + 3);
}

/// How often the marker is among the first entries of the dumped binary trace.
std::size_t Markers(const std::string& file, std::uint32_t marker) {
    std::string bytes(4, '\0');
    std::memcpy(bytes.data(), &marker, 4);
    return CountOf(ReadFile(file), bytes);
}

} // namespace

class FatalErrors : public Sandbox {};

TEST_F(FatalErrors, TheWholeRoadInOrder) {
    EXPECT_EQ(ExitOf([] { DeviceFatalError(5, nullptr, 0); }), 5);
    EXPECT_EQ(CountOf(Trace(), kTracer), 3U);
    EXPECT_EQ(
        Trace(),
        kTracer + "DeviceFatalError ErrorCode: 5, no file/line number provided!\r\n" + kTracer +
            "FATAL ERROR!!!  DeviceFatalError called, error is 5 :  @ line 0!\r\n" + kTracer +
            "FATAL ERROR!!!  \r\n  Triage instructions at: https://nima.example/triage \r\n"
            "  You will need symbols (pdb's and .map files), OS revision number AND Drel revision number "
            "for triage.\r\n  Please READ the log files and crash logs (hint: use the native crash log for "
            "this crash).\r\n");
    EXPECT_EQ(Output(),
              "FATAL ERROR!!!  DeviceFatalError called, error is 5 :  @ line 0!\n"
              "AutoRecover: OkToAutoRecover=1, Action=0x55\r\nAutoRecover: Auto-rebooting after crash\r\n");
    EXPECT_EQ(ReadFile("hooks"), "dump C:\\logs\\ForcedUserCrashDump.dmp 3 0\nrecover 5 0 c0430001\n");
    EXPECT_EQ(CountOf(ReadFile("crash.txt"), "Error Code: 5\r\n"), 1U);
    EXPECT_EQ(Markers(".\\SysTrace.bin", 0x1FC0EACF), 1U) << "the folder, a backslash, the name";
    EXPECT_EQ(Markers("SysTrace Buffer", 0x1FC0EAD5), 1U);
}

TEST_F(FatalErrors, ArgumentsReachTheLogAsTheyAre) {
    static const std::int32_t words[] = {1, 2, 3, -4};
    EXPECT_EQ(ExitOf([] {
                  g_Decision = 0;
                  g_CrashDumpFile = L"my.dmp";
                  static _EXCEPTION_RECORD record{};
                  record.ExceptionCode = 0xE0000001;
                  record.NumberParameters = 1;
                  static _EXCEPTION_POINTERS pointers{&record, nullptr};
                  DeviceFatalExceptionExtra(0x1FF, "100%% %s%n.cpp", -1, &pointers, 1000000, words);
              }),
              0xFF);
    const std::string log = ReadFile("crash.txt");
    EXPECT_EQ(CountOf(log, " File Name: 100%% %s%n.cpp\r\nLine Numbr: -1\r\n"), 1U);
    EXPECT_EQ(CountOf(log, "Extra Data:  D0=0x1 D1=0x2 D2=0x3 D3=0xfffffffc\r\n\r\n"), 1U);
    EXPECT_EQ(CountOf(log, " P00=0x00000000\r\nEND EXCEPTION RECORD\r\n"), 1U);
    EXPECT_EQ(CountOf(Trace(), "DeviceFatalError ErrorCode: 1ff : 100%% %s%n.cpp @ line -1\r\n"), 1U);
    EXPECT_EQ(
        Output(),
        "FATAL ERROR!!!  DeviceFatalError called, error is 1ff : 100% %s%n.cpp @ line -1 because of excptn "
        "0xe0000001 @ 0x00000000!\nAutoRecover: OkToAutoRecover=0, Action=0x55\r\n");
    EXPECT_EQ(CountOf(ReadFile("hooks"), "dump my.dmp 3 0\n"), 1U);
    EXPECT_EQ(ExitOf([] { DeviceFatalErrorExtra(3, "f", 1, -5, words); }), 3);
    EXPECT_EQ(ExitOf([] { DeviceFatalErrorExtra(4, "f", 1, 2, nullptr); }), 4);
    EXPECT_EQ(ExitOf([] { DeviceFatalException(INT32_MIN + 6, "f", 1, nullptr); }), 6);
    EXPECT_EQ(CountOf(ReadFile("crash.txt"), "Extra"), 0U);
    EXPECT_EQ(CountOf(ReadFile("crash.txt.1"), "Error Code: 4\r\n"), 1U) << "the previous log is kept";
}

TEST_F(FatalErrors, WithoutPathsTheRestIsStillDone) {
    EXPECT_EQ(ExitOf([] {
                  g_CrashLogFile = nullptr;
                  g_TriageFilePath = nullptr;
                  DeviceFatalError(7, "f.cpp", 3);
              }),
              7);
    EXPECT_EQ(
        CountOf(Trace(),
                "<ERROR> <Nima.Common.System.OS> Failed to dump trace data, no trace data path was set.\r\n"),
        1U);
    const std::string notCaptured =
        kTracer +
        "FATAL ERROR!!!  For some reason we did not capture a native crash log file, "
        "you may need to reproduce this...\r\n";
    EXPECT_EQ(CountOf(Trace(), notCaptured), 1U);
    EXPECT_EQ(ExitOf([] {
                  g_CrashLogFile = L"no/such/folder/crash.txt";
                  DeviceFatalError(8, "f.cpp", 3);
              }),
              8);
    EXPECT_EQ(CountOf(Trace(), notCaptured), 2U);
    EXPECT_TRUE(Exists(".\\SysTrace.bin"));
}

TEST_F(FatalErrors, NeitherAThrowingHookNorACancelledThreadKeepsTheProcessAlive) {
    EXPECT_EQ(ExitOf([] {
                  g_Decision = -1;
                  EnableExitTraps();
                  DeviceFatalError(21, "f", 1);
              }),
              21);
    EXPECT_EQ(CountOf(Output(), "AutoRecover: OkToAutoRecover=0, Action=0x55\r\n"), 1U);
    EXPECT_EQ(ExitOf([] {
                  std::thread([] {
                      ::pthread_cancel(::pthread_self());
                      DeviceFatalError(22, "f", 1);
                  }).join();
              }),
              22);
    EXPECT_EQ(CountOf(ReadFile("crash.txt"), "Error Code: 16\r\n"), 1U);
}

TEST_F(FatalErrors, OfSixThreadsOneIsHandled) {
    const int code = ExitOf([] {
        for (int t = 1; t <= 6; ++t) {
            std::thread([t] { DeviceFatalError(t, "thread.cpp", t); }).detach();
        }
        ::pause();
    });
    ASSERT_GE(code, 1);
    ASSERT_LE(code, 6);
    EXPECT_EQ(CountOf(ReadFile("crash.txt"), "Error Code: " + std::to_string(code) + "\r\n"), 1U);
    EXPECT_FALSE(Exists("crash.txt.1"));
}

TEST_F(FatalErrors, AnUnannouncedExitIsTrapped) {
    EXPECT_EQ(ExitOf([] {
                  EnableExitTraps();
                  EnableExitTraps();
                  DisableExitTraps();
                  EnableExitTraps();
                  std::exit(9);
              }),
              9)
        << "the exit continues with its own status";
    EXPECT_EQ(CountOf(ReadFile("crash.txt"), "Error Code: 49380A\r\nFault Addr: 0\r\nCrash Type: 0\r\n"), 1U);
    EXPECT_EQ(CountOf(Trace(), "FATAL ERROR!!!  OnExit called, error unknown!  Error will be 49380a!\r\n"),
              1U);
    EXPECT_EQ(Markers(".\\SysTrace.bin", 0x1FC0EAD1), 1U);
    EXPECT_FALSE(Exists("crash.txt.1"));
    ::unlink("crash.txt");
    EXPECT_EQ(ExitOf([] {
                  EnableExitTraps();
                  DisableExitTraps();
                  std::exit(9);
              }),
              9);
    EXPECT_FALSE(Exists("crash.txt"));
}

TEST_F(FatalErrors, AFailureAfterAHandledExitLeavesItsMarkersOnly) {
    EXPECT_EQ(ExitOf([] {
                  // Runs after the exit trap, which is registered later.
                  std::atexit([] {
                      std::printf("late:");
                      DeviceFatalError(11, "late.cpp", 1);
                  });
                  EnableExitTraps();
                  std::exit(9);
              }),
              11);
    EXPECT_FALSE(Exists("crash.txt.1"));
    EXPECT_EQ(CountOf(ReadFile("crash.txt"), "Error Code: 49380A"), 1U);
    EXPECT_EQ(Output().substr(Output().find("late:")), "late:");
    EXPECT_EQ(Markers("SysTrace Buffer", 0x1FC0EAD0), 1U);
    EXPECT_EQ(Markers("SysTrace Buffer", 0x1FC0EACF), 2U);
}

TEST_F(FatalErrors, TheLockIsOfOneHolder) {
    EXPECT_EQ(ReleaseCrashHandler(), EPERM) << "nobody holds it";
    for (int turn = 0; turn < 2; ++turn) {
        EXPECT_EQ(LockCrashHandler(), 1);
        EXPECT_EQ(ReleaseCrashHandler(), 0);
    }
}

} // namespace Nima::Testing
