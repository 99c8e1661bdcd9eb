/// How a process ends while its other threads keep tracing: with its own status, in time, and with whole
/// lines in its files. Every case runs in a child.

#include "tests/support/Sandbox.h"
#include "tests/support/TraceDevices.h"

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <thread>

#include <dlfcn.h>
#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Diagnostics/CrashApi.h>
#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceServices.h>

namespace Nima::Testing {

using namespace Nima::Common::System::OS::Diagnostics;

namespace {

NimaTrace g_First("First");
NimaTrace g_Second("Second");
NimaTrace g_Late("Late");
bool g_TraceBinary = true;

/// Pauses now and then, so that the thread that ends the process gets the locks in between.
void WriteForEver(int thread) {
    for (int i = 0;; ++i) {
        g_First.WriteErrorV("line %d of %d.", i, thread);
        g_Second.WriteError("tag", reinterpret_cast<const unsigned char*>("raw."), 4);
        TraceTest(0, "ends.");
        if (g_TraceBinary) {
            RTTrace_1(1, static_cast<unsigned long>(i));
        }
        if (i % 8 != 2 * thread) {
            continue;
        }
        g_Late.WriteErrorV("first used late.");
        g_First.lock();
        g_First.Initialized();
        g_First.unlock();
        g_Second.Initialize();
        const auto own = std::make_unique<NimaTrace>("Own");
        own->WriteErrorV("own line.");
        g_Second.Flush();
        ::usleep(200);
    }
}

/// Every creation rebinds all tracers.
void CreateForEver() {
    for (;;) {
        TraceDeviceRelease(CreatedQueue(L"Other"));
        ::usleep(100);
    }
}

/// The wait status of a process that traces from four threads and runs the action at some moment. It gets at
/// most 20 seconds.
int StatusUnderLoad(int round, const std::function<void()>& action) {
    return InChild([&] {
        ::alarm(20);
        TraceServices::ConfigureDefaultLog(L"log", 1 << 30, 0, true);
        SysTraceConfigure();
        g_CrashLogFile = L"crash.txt";
        g_TriageFilePath = L".";
        for (int t = 0; t < 4; ++t) {
            std::thread(WriteForEver, t).detach();
        }
        std::thread(CreateForEver).detach();
        ::usleep(static_cast<useconds_t>(1000 + 700 * (round % 5)));
        action();
    });
}

/// The log's incomplete lines. Anything after the last line end does not count.
int TornLines() {
    const std::string log = ReadFile("log");
    int torn = 0;
    for (const std::string& line : Lines(log.substr(0, log.rfind('\n') + 1))) {
        char level[8];
        char name[24];
        const bool begins =
            std::sscanf(line.c_str(), "%*d <0x%*8x:%*3d> <%7[A-Z]> <%23[^>]> ", level, name) == 2;
        torn += begins && (line.ends_with(".\r") || line.ends_with("=qpc\r")) ? 0 : 1;
    }
    return torn;
}

} // namespace

class ProcessEnds : public Sandbox {};

TEST_F(ProcessEnds, StaticTracersMayBeWrittenThroughToTheLast) {
    for (int round = 0; round < 6; ++round) {
        EXPECT_EQ(StatusUnderLoad(round, [] {}), 0);
        EXPECT_EQ(TornLines(), 0);
        ::unlink("log");
    }
}

TEST_F(ProcessEnds, AFatalErrorEndsItWithTheErrorsStatus) {
    g_TraceBinary = false; // the dump reads the block regardless of who is writing
    for (int round = 0; round < 4; ++round) {
        const int status = StatusUnderLoad(round, [round] {
            if (round % 2 == 0) {
                InstallCrashHandler(0);
            }
            DeviceFatalError(5, "f", 1);
        });
        EXPECT_TRUE(WIFEXITED(status)) << WTERMSIG(status);
        EXPECT_EQ(WEXITSTATUS(status), 5);
    }
    for (const std::string& name : Listing(".")) {
        EXPECT_EQ(name.find("stacktrace"), std::string::npos) << "nobody crashed";
    }
    EXPECT_EQ(CountOf(ReadFile("crash.txt"), "Error Code: 5\r\n"), 1U);
}

// The thread that ends the process holds a tracer's lock, and writers and a creation wait for it.
TEST_F(ProcessEnds, AnExitUnderATracersLockEndsIt) {
    for (int round = 0; round < 3; ++round) {
        EXPECT_EQ(StatusUnderLoad(round,
                                  [] {
                                      g_First.lock();
                                      ::usleep(2000);
                                      std::exit(0);
                                  }),
                  0);
    }
}

// A thread that hangs holds the lock of one tracer for good: that tracer stays as it is, and the others end.
TEST_F(ProcessEnds, AThreadThatHangsUnderATracersLockHoldsNothingUp) {
    EXPECT_EQ(StatusUnderLoad(0,
                              [] {
                                  std::thread([] {
                                      g_First.lock();
                                      for (;;) {
                                          ::pause();
                                      }
                                  }).detach();
                                  ::usleep(2000);
                              }),
              0);
}

// A plug-in's tracer is destroyed before the thread that writes through it ends, and the host keeps tracing.
TEST_F(ProcessEnds, APluginIsUnloadedUnderLoad) {
    const int status = StatusUnderLoad(0, [] {
        for (int i = 0; i < 5; ++i) {
            void* const plugin = ::dlopen(NIMA_PLUGIN, RTLD_NOW | RTLD_LOCAL);
            ASSERT_NE(plugin, nullptr) << ::dlerror();
            const auto start = reinterpret_cast<void (*)()>(::dlsym(plugin, "StartPlugin"));
            ASSERT_NE(start, nullptr);
            start();
            ASSERT_EQ(::dlclose(plugin), 0);
            ASSERT_EQ(::dlopen(NIMA_PLUGIN, RTLD_NOW | RTLD_NOLOAD), nullptr) << "still loaded";
        }
    });
    EXPECT_EQ(status, 0);
    EXPECT_GE(CountOf(ReadFile("log"), "<Plugin> at work."), 5U);
    EXPECT_EQ(TornLines(), 0);
}

TEST_F(ProcessEnds, TracersThatAreGoneHaveGivenEverythingBack) {
    std::size_t before = 0;
    for (int round = 0; round < 6; ++round) {
        std::vector<std::unique_ptr<NimaTrace>> tracers(600);
        for (auto& tracer : tracers) {
            tracer = std::make_unique<NimaTrace>("T");
            tracer->WriteErrorV("x");
        }
        tracers.clear();
        if (round == 1) {
            before = ::mallinfo2().uordblks;
        }
    }
    EXPECT_LE(::mallinfo2().uordblks, before + 65536);
}

} // namespace Nima::Testing
