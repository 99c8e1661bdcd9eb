/// The hooks through which testers provoke failures.

#include "Diagnostics/Triage/FaultGenerators.h"
#include "tests/support/Sandbox.h"

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <fstream>

#include <sys/wait.h>
#include <unistd.h>

#include <Diagnostics/CrashApi.h>
#include <Diagnostics/TestHooksApi.h>
#include <Diagnostics/TraceApi.h>

namespace {

std::atomic<unsigned> g_Slept{0};

} // namespace

// Replaces the failure thread's long sleep, which no test can wait for.
extern "C" unsigned sleep(unsigned seconds) {
    g_Slept += seconds;
    std::ofstream("slept") << seconds;
    return 0;
}

namespace Nima::Testing {

using namespace Nima::Common::System::OS::Diagnostics;

class Hooks : public Sandbox {};

TEST_F(Hooks, TheAsynchronousFailureNeedsCrashModeOne) {
    EXPECT_EQ(GetCrashMode(), 0);
    EXPECT_EQ(XXX_TestAsyncFail(true), 0);
    SetCrashMode(7);
    EXPECT_EQ(GetCrashMode(), 7);
    EXPECT_EQ(XXX_TestAsyncFail(true), 7);
    EXPECT_EQ(XXX_TestWaitForAsyncFail(), 7);
    EXPECT_EQ(g_Slept.load(), 0U);
    const int status = InChild([] {
        XXX_TestEzTraceConfig(L"trace.log", 1 << 20, 0, true);
        g_CrashLogFile = L"crash.txt";
        SetCrashMode(1);
        EXPECT_EQ(XXX_TestAsyncFail(false), 1);
        ::pause();
    });
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(ReadFile("slept"), "500");
    EXPECT_EQ(WEXITSTATUS(status), 0x45) << "the low 8 bits of 0x00492345";
    EXPECT_EQ(CountOf(ReadFile("crash.txt"),
                      "Error Code: 492345\r\nFault Addr: 0\r\nCrash Type: 2\r\nExcpt Code: 0\r\n"
                      " File Name: Diagnostics/TraceImpl\r\nLine Numbr: 58\r\nBoot Cycle: 0\r\n"
                      "Extra Data:  D0=0x3de3 D1=0x368dc D2=0x3 D3=0x4\r\n\r\n"),
              1U);
}

TEST_F(Hooks, LargeWritesGoThroughEveryLevel) {
    TraceSetEffectiveLevel(0);
    ASSERT_EQ(XXX_TestEzTraceConfig(L"trace.log", 1 << 20, 0, true), 0);
    const std::string data = std::string(5000, 'd') + "\n";
    const auto* bytes = reinterpret_cast<const unsigned char*>(data.data());
    const int length = static_cast<int>(data.size());
    EXPECT_EQ(XXX_TestEzLargeTraceWrites(L"name", L"tag", bytes, length), 3);
    EXPECT_EQ(XXX_TestEzLargeTraceWrites(L"", L"tag", bytes, length), 0);
    EXPECT_EQ(XXX_TestEzLargeTraceWrites(L"name", L"", bytes, length), 0);
    EXPECT_EQ(XXX_TestEzLargeTraceWrites(nullptr, nullptr, bytes, length), 0);
    EXPECT_EQ(XXX_TestEzLargeTraceWrites(L"name\x4e2d", L"tag", bytes, length), -1);
    EXPECT_EQ(XXX_TestEzTraceRelease(), 0);
    EXPECT_EQ(XXX_TestEzTraceRelease(), 22);
    const std::string log = ReadFile("trace.log");
    std::size_t at = 0;
    for (const char* level : {"DEBUG", "INFO", "WARN", "ERROR", "FATAL"}) {
        for (const char* tag : {"", "tag::"}) {
            at = log.find(std::string("> <") + level + "> <name> " + tag + data, at + 1);
            ASSERT_NE(at, std::string::npos) << level << tag;
        }
    }
    EXPECT_EQ(CountOf(log, data), 10U);
}

TEST_F(Hooks, FaultsAreGenerated) {
    const auto signalOf = [](const std::function<void()>& action) {
        const int status = InChild([&] {
            ::signal(SIGSEGV, SIG_DFL);
            action();
        });
        return WIFSIGNALED(status) ? WTERMSIG(status) : 0;
    };
    EXPECT_EQ(signalOf([] { ForceAccessViolation(); }), SIGSEGV);
    EXPECT_EQ(signalOf([] { _GenerateAccessViolation(nullptr); }), SIGSEGV);
    std::uint32_t word = 41;
    _GenerateAccessViolation(&word);
    EXPECT_EQ(word, 42U);
    _GenerateStackOverflow(&word);
}

} // namespace Nima::Testing
