/// Processes that fork while their threads trace. The child traces too, whatever the other threads were
/// doing.

#include "tests/support/Sandbox.h"
#include "tests/support/TraceDevices.h"

#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <thread>

#include <sys/wait.h>
#include <unistd.h>

#include <Diagnostics/CrashApi.h>
#include <Diagnostics/EventLogApi.h>
#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>
#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceServices.h>

namespace {

std::function<void()> g_OnRecover;
std::function<void()> g_OnEvent;

} // namespace

// The host's own hook, which may fork as well.
extern "C" int IsOkToAutoRecover(long /*code*/, long /*faultAddress*/, std::uint32_t* /*action*/) {
    if (g_OnRecover) {
        g_OnRecover();
    }
    return 0;
}

namespace Nima::Testing {

using namespace Nima::Common::System::OS::Diagnostics;

namespace {

/// This sanitizer's allocator does not know of forks: if a thread is inside it then, the child has no usable
/// allocator. Nor does its leak check know which threads a child has.
#ifdef __SANITIZE_ADDRESS__
constexpr bool kThreadsAllocate = false;
constexpr bool kChildMayExit = false;
#else
constexpr bool kThreadsAllocate = true;
constexpr bool kChildMayExit = true;
#endif

NimaTrace g_First("First");
NimaTrace g_Second("Second");
TRACE_DEVICE_HANDLE g_Queue = nullptr;

unsigned long OnEvent(EventTypes /*type*/, const wchar_t* /*source*/, unsigned long /*id*/,
                      const wchar_t* /*file*/, int /*line*/, const wchar_t* /*payload*/) {
    if (g_OnEvent) {
        g_OnEvent();
    }
    g_Second.WriteErrorV("event.");
    return 0;
}

bool LogAnEvent() {
    return LogEvent(EVENT_TYPE_ERROR, L"source", 1, L"file", 1, nullptr, 0) == 1;
}

void UseARing() {
    TRACE_RING_HANDLE ring = nullptr;
    unsigned char records[64];
    unsigned long copied = 0;
    GetTraceRingBuffer(RING_PANEL, &ring);
    GetTraceData(ring, records, sizeof(records), &copied);
    EmptyRingBuffer(ring);
}

/// Threads that are in turn inside every lock of the library.
class Load {
  public:
    Load() {
        TraceServices::ConfigureDefaultLog(L"log", 1 << 30, 0, true);
        SetupEventLogCallbacks(OnEvent, nullptr);
        g_Queue = CreatedQueue(L"Queue");
        for (int t = 0; t < kWriters; ++t) {
            threads_.emplace_back([this, t] { Write(t); });
        }
        if (kThreadsAllocate) {
            threads_.emplace_back([this] {
                while (!stop_) {
                    TraceDeviceRelease(CreatedQueue(L"Other"));
                    TraceSetEffectiveLevel(TRACE_THRESHOLD_ERROR);
                    TraceDeviceFlushAll(false);
                    g_Second.Initialize();
                    NimaTrace("Own").WriteErrorV("own.");
                    LogAnEvent();
                }
            });
        }
    }
    Load(const Load&) = delete;
    Load& operator=(const Load&) = delete;
    ~Load() {
        stop_ = true;
        threads_.clear();
        TraceDeviceRelease(g_Queue);
        SetupEventLogCallbacks(nullptr, nullptr);
    }

    static constexpr int kWriters = 4;
    /// The last number that a writer has written.
    int written(int writer) const { return written_[writer]; }

  private:
    void Write(int thread) {
        for (int i = 0; !stop_; ++i) {
            g_First.WriteErrorV("parent %d line %d.", thread, i);
            written_[thread] = i;
            TraceDeviceWrite(g_Queue, "queued", -1);
            UseARing();
            g_Second.lock();
            g_Second.Initialized();
            g_Second.unlock();
            if (i % 64 == 0) {
                ::usleep(100);
            }
        }
    }

    std::atomic<bool> stop_{false};
    std::atomic<int> written_[kWriters]{};
    Threads threads_;
};

constexpr int kChildLines = 20;

/// Uses everything that the parent's threads may have been using.
void TraceAsChild(int number) {
    for (int i = 0; i < kChildLines; ++i) {
        g_First.WriteErrorV("child %d line %d.", number, i);
        TraceDeviceWrite(g_Queue, "queued", -1);
    }
    g_Second.WriteErrorV("child too.");
    TraceTest(0, "child.");
    NimaTrace("Own").WriteErrorV("child's own.");
    TraceDeviceRelease(CreatedQueue(L"Child's"));
    LogAnEvent();
    UseARing();
    TraceDeviceFlushAll(false);
}

/// Forks, and gives the child 20 seconds for its action. Returns the wait status.
int StatusOfFork(const std::function<void()>& inChild, bool exits = false) {
    const pid_t child = ::fork();
    if (child == 0) {
        ::alarm(20);
        inChild();
        if (exits && kChildMayExit) {
            std::exit(0);
        }
        ::_exit(0);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    return status;
}

} // namespace

class Forks : public Sandbox {};

// Every line of parent and children is in the log, whole and once.
TEST_F(Forks, AChildTracesWhateverTheParentsThreadsAreAt) {
    constexpr int kChildren = 8;
    int written[Load::kWriters];
    {
        const Load load;
        for (int number = 0; number < kChildren; ++number) {
            ::usleep(static_cast<useconds_t>(1000 + 300 * number));
            ASSERT_EQ(StatusOfFork([=] { TraceAsChild(number); }, number % 2 == 0), 0);
        }
        for (int t = 0; t < Load::kWriters; ++t) {
            written[t] = load.written(t);
        }
    }
    TraceDeviceFlushAll(false);
    std::map<std::pair<std::string, int>, int> next;
    for (const std::string& line : Lines(ReadFile("log"))) {
        char who[8];
        int number = 0;
        int i = 0;
        char end = '\0';
        EXPECT_TRUE(line.find("> <") != std::string::npos && line.back() == '\r') << line;
        if (std::sscanf(line.c_str(), "%*d <0x%*x:%*d> <ERROR> <First> %7s %d line %d%c", who, &number, &i,
                        &end) == 4) {
            EXPECT_EQ(end, '.') << line;
            EXPECT_EQ(i, (next[{who, number}]++)) << line;
        }
    }
    for (int number = 0; number < kChildren; ++number) {
        EXPECT_EQ((next[{"child", number}]), kChildLines);
    }
    for (int t = 0; t < Load::kWriters; ++t) {
        EXPECT_GT((next[{"parent", t}]), written[t]);
    }
}

// The child continues under the lock, and all others are free.
TEST_F(Forks, AHostMayForkUnderALockThatItHolds) {
    const Load load;
    g_Second.lock();
    ::usleep(2000);
    EXPECT_EQ(StatusOfFork([] {
                  g_Second.unlock();
                  TraceAsChild(0);
              }),
              0);
    g_Second.unlock();
    EXPECT_EQ(CountOf(ReadFile("log"), "child 0 line "), 20U);
}

TEST_F(Forks, AHostMayForkInACallback) {
    const std::thread::id forker = std::this_thread::get_id();
    pid_t child = -1;
    g_OnEvent = [&] {
        if (std::this_thread::get_id() == forker && child == -1) {
            child = ::fork();
        }
    };
    const Load load;
    while (child == -1) {
        LogAnEvent();
    }
    if (child == 0) { // leave the callback, through the library
        ::alarm(20);
        TraceAsChild(1);
        ::_exit(0);
    }
    int status = -1;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(CountOf(ReadFile("log"), "child 1 line "), 20U);
}

// While a hook of the dying parent runs, under the crash lock, and while another thread of the parent is
// handling a crash.
TEST_F(Forks, AChildDiesItsOwnDeath) {
    g_CrashLogFile = L"crash.txt";
    int status = StatusOfFork([] {
        TraceServices::ConfigureDefaultLog(L"log", 1 << 20, 0, true);
        g_OnRecover = [] {
            StatusOfFork([] {
                g_First.WriteErrorV("out of the hook.");
                g_First.Flush();
            });
        };
        DeviceFatalError(5, "parent", 1);
    });
    EXPECT_EQ(WEXITSTATUS(status), 5);
    EXPECT_EQ(CountOf(ReadFile("log"), "out of the hook.\r\n"), 1U);
    ::unlink("crash.txt");
    std::atomic<bool> held{false};
    std::atomic<bool> done{false};
    std::thread handling([&] {
        LockCrashHandler();
        held = true;
        WaitUntil([&] { return done.load(); });
        ReleaseCrashHandler();
    });
    WaitUntil([&] { return held.load(); });
    status = StatusOfFork([] { DeviceFatalError(7, "child", 1); });
    done = true;
    handling.join();
    EXPECT_TRUE(WIFEXITED(status)) << WTERMSIG(status);
    EXPECT_EQ(WEXITSTATUS(status), 7);
    EXPECT_EQ(CountOf(ReadFile("crash.txt"), "Error Code: 7\r\n"), 1U);
}

TEST_F(Forks, AChildThatCrashesLeavesAFileOfItsOwn) {
    InGoodChild([] {
        InstallCrashHandler(0);
        const Load load;
        ::usleep(2000);
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(20);
            std::raise(SIGSEGV);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        EXPECT_TRUE(WIFSIGNALED(status));
        EXPECT_EQ(WTERMSIG(status), SIGABRT);
        const std::string file = "stacktrace" + std::to_string(child) + "-1.txt";
        EXPECT_GT(CountOf(ReadFile(file), "0x"), 0U) << file;
        ::_exit(HasFailure() ? 1 : 0);
    });
}

// The line is neither lost with a parent that ends at once, as one that becomes a daemon does, nor written
// twice.
TEST_F(Forks, ABufferedLineIsThereOnce) {
    for (const bool parentStays : {true, false}) {
        const int status = StatusOfFork([=] {
            TraceServices::ConfigureDefaultLog(L"log", 1 << 20, 0, true);
            g_First.WriteErrorV("before the fork.");
            StatusOfFork(
                [] {
                    g_First.WriteErrorV("in the child.");
                    g_First.Flush();
                },
                true);
            if (parentStays) {
                g_First.Flush();
            }
        });
        EXPECT_EQ(status, 0);
        const std::string log = ReadFile("log");
        EXPECT_EQ(CountOf(log, "before the fork.\r\n"), 1U);
        EXPECT_EQ(CountOf(log, "in the child.\r\n"), 1U);
        ::unlink("log");
    }
}

} // namespace Nima::Testing
