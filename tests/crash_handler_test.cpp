/// The native crash handler: every handled signal, unhandled exceptions and a host's own report, judged by
/// what a child that dies of them leaves.

#include "crashHandler/crashHandler.h"
#include "tests/support/Sandbox.h"
#include "tests/support/StackTraces.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cinttypes>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Diagnostics/CrashApi.h>

namespace Nima::Testing {

namespace {

struct Death {
    pid_t pid = 0;
    int status = 0;

    bool ByAbort() const { return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT; }
    std::string File(int number) const {
        return "stacktrace" + std::to_string(pid) + "-" + std::to_string(number) + ".txt";
    }
};

Death DieOf(const std::function<void()>& action) {
    Death death;
    death.pid = ::fork();
    if (death.pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL); // if it hung, it would keep the port from later tests
        ::dup2(::open("out", O_WRONLY | O_CREAT | O_TRUNC, 0600), STDOUT_FILENO);
        ::dup2(::open("err", O_WRONLY | O_CREAT | O_TRUNC, 0600), STDERR_FILENO);
        InstallCrashHandler(0);
        action();
        ::_exit(0);
    }
    ::waitpid(death.pid, &death.status, 0);
    return death;
}

std::string CoreDirectory() {
    char directory[kCoreDirectorySize];
    coreDirectory("/proc/sys/kernel/core_pattern", directory);
    return directory;
}

std::string Notification(const std::string& path) {
    return "crash-notification\r\nfile: " + path + "\r\ndir:" + CoreDirectory() + "\r\n";
}

void ExpectFrames(const std::string& text) {
    EXPECT_TRUE(text.ends_with('\n'));
    for (const std::string& line : Lines(text)) {
        EXPECT_TRUE(IsFrame(line)) << line;
    }
}

std::atomic<int> g_Depth{0};
std::atomic<int> g_Flushes{0};
std::atomic<bool> g_FilesComeSlowly{false};
std::atomic<bool> g_FileAsked{false};

/// An address where nothing is mapped. Not null, which a sanitizer would see before the processor does.
volatile int* Nowhere(int page = 1) {
    return reinterpret_cast<volatile int*>(static_cast<std::uintptr_t>(page) * 0x1000);
}

/// Faults a few instructions into the function.
__attribute__((noinline)) void WriteToNowhere(volatile int* target) {
    ++g_Depth;
    *target = g_Depth.load();
    ++g_Depth;
}

/// Calls through a pointer that leads nowhere.
__attribute__((noinline)) void CallNowhere() {
    reinterpret_cast<void (*)()>(const_cast<int*>(Nowhere()))();
    ++g_Depth;
}

__attribute__((noinline)) int FaultDeepDown(int depth) {
    if (depth == 0) {
        WriteToNowhere(Nowhere());
    }
    const int below = depth == 0 ? 0 : FaultDeepDown(depth - 1);
    return ++g_Depth + below;
}

__attribute__((noinline)) int Overflow(int depth) {
    volatile char room[500];
    room[0] = static_cast<char>(depth);
    return depth == -1 ? 0 : Overflow(depth + 1) + room[0];
}

/// Two frame pointers that point at each other.
__attribute__((noinline)) void LoopTheStack() {
    void** const frame = static_cast<void**>(__builtin_frame_address(0));
    void* other[2] = {frame, frame[1]};
    frame[0] = other;
    WriteToNowhere(Nowhere());
    ++g_Depth;
}

#ifndef __arm__ // the emulator cannot do this
/// From here on a system call of this process gets the given answer.
void Deny(unsigned call, unsigned answer) {
    sock_filter rules[] = {
        BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, call, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, answer),
        BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
    };
    const sock_fprog program{static_cast<unsigned short>(std::size(rules)), rules};
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    ASSERT_EQ(::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program), 0) << std::strerror(errno);
}
#endif

} // namespace

/// Counts the handler's own calls that bring its file to the disk.
extern "C" int fsync(int __fd) {
    ++g_Flushes;
    return static_cast<int>(::syscall(SYS_fsync, __fd));
}

/// Simulates a machine that is busy with the crashes of many threads.
extern "C" int open64(const char* __file, int __oflag, ...) {
    mode_t mode = 0;
    if ((__oflag & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, __oflag);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    if (g_FilesComeSlowly && (__oflag & O_EXCL) != 0) {
        g_FileAsked = true;
        ::usleep(300000);
    }
    return static_cast<int>(::syscall(SYS_openat, AT_FDCWD, __file, __oflag | O_LARGEFILE, mode));
}

#ifndef __arm__
extern "C" void EndsInACall();
__asm__(R"(
    .text
    .type FaultsAtOnce, @function
    .balign 16
FaultsAtOnce:
    .cfi_startproc
    movl $1, 0x1000
    ret
    .cfi_endproc
    .size FaultsAtOnce, .-FaultsAtOnce
    .globl EndsInACall
    .type EndsInACall, @function
EndsInACall:
    .cfi_startproc
    pushq %rbp
    .cfi_def_cfa_offset 16
    call FaultsAtOnce
    .cfi_endproc
    .size EndsInACall, .-EndsInACall
    .type FollowsTheCall, @function
FollowsTheCall:
    .cfi_startproc
    ret
    .cfi_endproc
    .size FollowsTheCall, .-FollowsTheCall
)");
#endif

class CrashHandler : public Sandbox {
  protected:
    std::string NotificationOf(const std::string& file) const {
        return Notification(directory() + "/" + file);
    }
    /// So many files with frames, each of them announced, and the process was ended by an abort.
    void ExpectReports(const Death& death, int files) const {
        EXPECT_TRUE(death.ByAbort()) << death.status;
        std::vector<std::string> expected;
        for (int number = 1; number <= files; ++number) {
            ExpectFrames(ReadFile(death.File(number)));
            expected.push_back(NotificationOf(death.File(number)));
        }
        EXPECT_FALSE(Exists(death.File(files + 1)));
        EXPECT_EQ(port.Received(), expected);
    }

    const NotificationPort port;
};

TEST_F(CrashHandler, EverySignalLeavesItsFilesAndEndsInAbort) {
    for (const int signal :
         {SIGSEGV, SIGILL, SIGTRAP, SIGFPE, SIGBUS, SIGSYS, SIGPIPE, SIGXCPU, SIGXFSZ, SIGABRT}) {
        SCOPED_TRACE(signal);
        const Death death = DieOf([=] { ::raise(signal); });
        const bool twice = signal != SIGABRT;
        ExpectReports(death, twice ? 2 : 1);
        const std::string errors =
            "Error: signal " + std::to_string(signal) + (twice ? "\nError: signal 6\n" : "\n");
        EXPECT_EQ(ReadFile("err").substr(0, errors.size()), errors);
        const std::string sent =
            "sent " + std::to_string(NotificationOf(death.File(1)).size()) + " bytes to mosk\n";
        EXPECT_EQ(ReadFile("out"), twice ? sent + sent : sent);
    }
}

TEST_F(CrashHandler, AnUnhandledExceptionIsOneFileAndTheAbortAnother) {
    ExpectReports(DieOf([] { std::thread([] { throw std::runtime_error("nobody catches this"); }).join(); }),
                  2);
    EXPECT_EQ(CountOf(ReadFile("err"), "Error: signal"), 1U);
}

TEST_F(CrashHandler, AHostsReportIsToTheByte) {
    Death death =
        DieOf([] { HandleFatalCrash("out of %s", "frame one\nframe two\n", 0xFFFFFFFF, "host.cpp", 12); });
    EXPECT_TRUE(death.ByAbort());
    EXPECT_EQ(ReadFile(death.File(1)),
              "host.cpp, line 12: Message: [out of %s]\r\nhost.cpp, line 12: Code: -1, 0xffffffff\r\n"
              "crashHandler/crashHandler, line 258: File: host.cpp, line 12\r\n"
              "crashHandler/crashHandler, line 260: Callstack:\r\nframe one\nframe two\n");
    ExpectFrames(ReadFile(death.File(2)));
    EXPECT_FALSE(Exists(death.File(3)));

    death = DieOf([] { HandleFatalCrash(nullptr, nullptr, 0, nullptr, 0); });
    EXPECT_TRUE(death.ByAbort());
    const std::string report = ReadFile(death.File(1));
    const std::string last = "crashHandler/crashHandler, line 260: Callstack:\r\n";
    EXPECT_EQ(report.substr(0, report.find(last)),
              ", line 0: Message: []\r\n, line 0: Code: 0, 0x00000000\r\n"
              "crashHandler/crashHandler, line 258: File: , line 0\r\n");
    ExpectFrames(report.substr(report.find(last) + last.size()));

    const std::string longText(500, 'm');
    death = DieOf([&] { HandleFatalCrash(longText.c_str(), "x", 1, longText.c_str(), 1); });
    const std::string cut = ReadFile(death.File(1));
    EXPECT_EQ(cut.substr(0, 198), std::string(198, 'm')) << "each line is cut at 99 characters";
    EXPECT_TRUE(death.ByAbort());
    // A host that ignores the signal dies all the same.
    death = DieOf([] {
        ::signal(SIGABRT, SIG_IGN);
        HandleFatalCrash("x", "x", 1, "x", 1);
    });
    EXPECT_TRUE(death.ByAbort());
    EXPECT_FALSE(Exists(death.File(2)));
}

TEST_F(CrashHandler, AThreadThatIsBeingCancelledDiesAllTheSame) {
    const auto cancelled = [](const std::function<void()>& action) {
        return DieOf([&] {
            std::thread([&] {
                ::pthread_cancel(::pthread_self());
                action();
            }).join();
        });
    };
    EXPECT_TRUE(cancelled([] { WriteToNowhere(Nowhere()); }).ByAbort());
    EXPECT_TRUE(cancelled([] { HandleFatalCrash("x", "x", 1, "x", 1); }).ByAbort());
}

// Taken numbers may be the files of other threads that crash at the same time: however long it takes to get
// past them, a crash has a file of its own.
TEST_F(CrashHandler, NoTakenNumberIsSettledFor) {
    const Death death = DieOf([] {
        for (const char* number : {"-1.txt", "-2.txt"}) {
            WriteFile("stacktrace" + std::to_string(::getpid()) + number, "taken");
        }
        g_FilesComeSlowly = true;
        ::raise(SIGABRT);
    });
    EXPECT_EQ(ReadFile(death.File(1)) + ReadFile(death.File(2)), "takentaken");
    ExpectFrames(ReadFile(death.File(3)));
    EXPECT_FALSE(Exists(death.File(4)));
    EXPECT_EQ(port.Received(), std::vector<std::string>{NotificationOf(death.File(3))});
}

TEST_F(CrashHandler, ALongWorkingDirectoryIsCut) {
    const std::string deep = directory() + "/a-folder-with-quite-a-long-name";
    std::string deeper = deep;
    while (deeper.size() < 2000) {
        deeper += "/" + std::string(200, 'd');
    }
    std::filesystem::create_directories(deeper);
    for (const std::string& folder : {deep, deeper}) {
        std::filesystem::current_path(folder);
        const Death death = DieOf([] { ::raise(SIGABRT); });
        EXPECT_TRUE(death.ByAbort());
        ExpectFrames(ReadFile(death.File(1)));
        EXPECT_EQ(port.Received(),
                  std::vector<std::string>{Notification(deep.substr(0, 29) + "/" + death.File(1))});
    }
}

TEST_F(CrashHandler, TheCoreDirectoryComesFromThePattern) {
    const auto of = [](const std::string& pattern) {
        WriteFile("pattern", pattern);
        char directory[kCoreDirectorySize];
        coreDirectory("pattern", directory);
        return std::string(directory);
    };
    EXPECT_EQ(of("/var/core/core.%e.%p\n"), "/var/core");
    EXPECT_EQ(of("core\n"), "/");
    EXPECT_EQ(of("/core\n"), "/");
    EXPECT_EQ(of(""), "/var/log");
    EXPECT_EQ(of("|/usr/lib/systemd/systemd-coredump %P"), "|/usr/lib/systemd");
    EXPECT_EQ(of("/" + std::string(100, 'x')), "/");
    char directory[kCoreDirectorySize];
    coreDirectory("absent", directory);
    EXPECT_STREQ(directory, "/var/log");
}

TEST_F(CrashHandler, TheCoreLimitIsTheSmallerOfWishAndHardLimit) {
    InGoodChild([] {
        rlimit limit{};
        rlimit hard{4096, 4096};
        ASSERT_EQ(::setrlimit(RLIMIT_CORE, &hard), 0);
        for (const auto& [wish, soft] :
             {std::pair<int, rlim_t>{0, 0}, {100, 100}, {-1, 4096}, {5000, 4096}}) {
            InstallCrashHandler(wish);
            ::getrlimit(RLIMIT_CORE, &limit);
            EXPECT_EQ(limit.rlim_cur, soft);
            EXPECT_EQ(limit.rlim_max, 4096U);
        }
    });
}

// If threads fail together, each writes its own frames, once, and every file is announced.
TEST_F(CrashHandler, ThreadsMayCrashTogether) {
#ifdef __arm__
    constexpr int kThreads = 4; // copying the process is slow under the emulator, and waiting is limited
#else
    constexpr int kThreads = 20;
#endif
    const Death death = DieOf([] {
        std::atomic<int> ready{0};
        StartTogether(kThreads, [&ready](int t) {
            ++ready;
            while (ready < kThreads) {
                std::this_thread::yield();
            }
            WriteToNowhere(Nowhere(t + 1));
        });
    });
    EXPECT_TRUE(death.ByAbort()) << death.status << ReadFile("err");
    std::vector<std::string> expected;
    std::size_t traced = 0;
    for (int file = 1; Exists(death.File(file)); ++file) {
        const std::size_t count = CountOf(ReadFile(death.File(file)), "WriteToNowhere(int volatile*");
        EXPECT_LE(count, 1U) << death.File(file);
        traced += count;
        expected.push_back(NotificationOf(death.File(file)));
    }
    EXPECT_GE(traced, static_cast<std::size_t>(kThreads));
#ifndef __arm__ // there a stack ends at the abort
    EXPECT_EQ(traced, expected.size());
#endif
    std::vector<std::string> announced = port.Received();
    std::sort(announced.begin(), announced.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(announced, expected);
}

TEST_F(CrashHandler, AnAddressThatIsNoCodeIsTracedToItsCaller) {
    const Death death = DieOf(CallNowhere);
    EXPECT_TRUE(death.ByAbort());
    const std::string frames = ReadFile(death.File(1));
    ExpectFrames(frames);
    EXPECT_EQ(CountOf(frames, "\n0x1000: -- error: unable to obtain symbol name for this frame\n"), 1U)
        << frames;
#ifndef __arm__ // nothing there shows the caller
    EXPECT_EQ(CountOf(frames, "CallNowhere()"), 1U) << frames;
#endif
}

#ifndef __arm__
// The first instruction of a function belongs to it, and so does a call that is its last instruction: neither
// is attributed to the neighbour.
TEST_F(CrashHandler, InstructionsAtTheEdgesOfAFunctionAreNamedRight) {
    const Death death = DieOf([] { EndsInACall(); });
    EXPECT_TRUE(death.ByAbort());
    const std::string frames = ReadFile(death.File(1));
    EXPECT_EQ(CountOf(frames, " (FaultsAtOnce+0x0)\n"), 1U) << frames;
    EXPECT_EQ(CountOf(frames, " (EndsInACall+0x"), 1U) << frames;
    EXPECT_EQ(CountOf(frames, "FollowsTheCall"), 0U) << frames;
}
#endif

TEST_F(CrashHandler, AStackThatLoopsHasAnEnd) {
    const Death death = DieOf([] { LoopTheStack(); });
    EXPECT_TRUE(death.ByAbort());
    EXPECT_GT(CountOf(ReadFile(death.File(1)), "\n"), 2U);
    EXPECT_LT(CountOf(ReadFile(death.File(1)), "\n"), 1000U);
}

TEST_F(CrashHandler, AnAbortFromOutsideEndsTheProcessByThatSignal) {
    for (int round = 0; round < 5; ++round) {
        Death death;
        death.pid = ::fork();
        if (death.pid == 0) {
            ::dup2(::open("/dev/null", O_WRONLY), STDOUT_FILENO);
            ::dup2(STDOUT_FILENO, STDERR_FILENO);
            InstallCrashHandler(0);
            WriteToNowhere(Nowhere());
        }
        while (::waitpid(death.pid, &death.status, WNOHANG) == 0) {
            ::kill(death.pid, SIGABRT);
        }
        EXPECT_TRUE(death.ByAbort()) << death.status;
    }
}

// A thread that is already dying is not disturbed by more signals.
TEST_F(CrashHandler, SignalsSentToADyingThreadChangeNothing) {
#ifdef __arm__ // the emulator takes seconds for each
    constexpr int kRounds = 2;
#else
    constexpr int kRounds = 8;
#endif
    for (int round = 0; round < kRounds; ++round) {
        const Death death = DieOf([] {
            sigset_t all;
            sigset_t before;
            ::sigfillset(&all);
            ::pthread_sigmask(SIG_SETMASK, &all, &before);
            std::thread([dying = ::gettid()] {
                for (int number = 0;; ++number) {
                    ::syscall(SYS_tgkill, ::getpid(), dying, number % 2 == 0 ? SIGBUS : SIGSEGV);
                    ::usleep(20);
                }
            }).detach();
            ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
            WriteToNowhere(Nowhere());
        });
        ExpectReports(death, 2);
    }
}

TEST_F(CrashHandler, AnExitWaitsForAThreadThatReports) {
    const Death death = DieOf([] {
        g_FilesComeSlowly = true;
        std::thread([] { WriteToNowhere(Nowhere()); }).detach();
        WaitUntil([] { return g_FileAsked.load(); });
        std::exit(0);
    });
    ExpectReports(death, 2);
}

TEST_F(CrashHandler, EveryFrameOfADeepRecursionIsWritten) {
    const Death death = DieOf([] { FaultDeepDown(10000); });
    EXPECT_TRUE(death.ByAbort());
    EXPECT_EQ(CountOf(ReadFile(death.File(1)), "FaultDeepDown(int)"), 10001U);
#ifndef __arm__ // there a stack ends at the abort
    EXPECT_EQ(CountOf(ReadFile(death.File(2)), "FaultDeepDown(int)"), 10001U);
#endif
}

TEST_F(CrashHandler, AFullStackIsTraced) {
    const Death death = DieOf([] {
        const rlimit small{1 << 20, 1 << 20};
        ::setrlimit(RLIMIT_STACK, &small);
        Overflow(0);
    });
    ExpectReports(death, 2);
    EXPECT_GT(CountOf(ReadFile(death.File(1)), "Overflow(int)"), 500U);
}

TEST_F(CrashHandler, TheFileIsOnDiskBeforeItIsAnnounced) {
    const Death death = DieOf([] {
        g_Flushes = 0;
        ::signal(SIGABRT, [](int) { ::_exit(g_Flushes.load()); });
        WriteToNowhere(Nowhere());
    });
    EXPECT_EQ(death.status, 1 << 8) << "flushed once before the abort";
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__) // their heaps are elsewhere
// Not a byte of the heap is what it was, what libunwind keeps there included.
TEST_F(CrashHandler, ADamagedHeapCostsNoNames) {
    const Death death = DieOf([] {
        std::uintptr_t begin = 0;
        std::uintptr_t end = 0;
        for (const std::string& line : Lines(ReadFile("/proc/self/maps"))) {
            if (line.find("[heap]") != std::string::npos) {
                std::sscanf(line.c_str(), "%" SCNxPTR "-%" SCNxPTR, &begin, &end);
            }
        }
        std::memset(reinterpret_cast<void*>(begin), 0xFF, end - begin);
        WriteToNowhere(Nowhere());
    });
    ExpectReports(death, 2);
    EXPECT_EQ(CountOf(ReadFile(death.File(1)), "WriteToNowhere(int volatile*"), 1U);
    EXPECT_GT(CountOf(ReadFile(death.File(2)), "signalHandler(int)"), 0U);
}
#endif

// What cannot be written is missing; the crash is announced, and the process ends as always.
TEST_F(CrashHandler, NoRoomForTheFileCostsTheFrames) {
    const auto expectTwoFilesOf = [&](std::size_t size, const std::string& folder, const Death& death) {
        EXPECT_TRUE(death.ByAbort()) << death.status;
        std::vector<std::string> expected;
        for (const std::string& file : {death.File(1), death.File(2)}) {
            const std::string path = std::string(folder).append("/").append(file);
            EXPECT_TRUE(Exists(path));
            EXPECT_EQ(ReadFile(path).size(), size);
            expected.push_back(Notification(path));
        }
        EXPECT_EQ(port.Received(), expected);
    };
    for (const rlim_t most : {0, 100}) {
        expectTwoFilesOf(most, directory(), DieOf([=] {
                             const rlimit limit{most, most};
                             ::setrlimit(RLIMIT_FSIZE, &limit);
                             WriteToNowhere(Nowhere());
                         }));
    }
    const TinyDisk disk("tiny", 16);
    if (!disk.mounted()) {
        GTEST_SKIP() << "cannot mount a file system here";
    }
    disk.Fill();
    expectTwoFilesOf(0, directory() + "/tiny", DieOf([] {
                         std::filesystem::current_path("tiny");
                         WriteToNowhere(Nowhere());
                     }));
}

TEST_F(CrashHandler, AFaultIsTracedToItsFunctionEvenWithoutStandardDescriptors) {
    const Death death = DieOf([] {
        ::close(STDIN_FILENO);
        ::close(STDOUT_FILENO);
        ::close(STDERR_FILENO);
        WriteToNowhere(Nowhere());
    });
    ExpectReports(death, 2);
    const std::string frames = ReadFile(death.File(1));
    EXPECT_EQ(CountOf(frames, "WriteToNowhere(int volatile*"), 1U) << frames;
    EXPECT_LT(frames.find("signalHandler(int)"), frames.find("WriteToNowhere"));
}

#ifndef __arm__
TEST_F(CrashHandler, WhatTheSystemDeniesIsDoneWithout) {
    // No copy of the process: the stack is walked in place, if there is room for that.
    Death death = DieOf([] {
        static unsigned char room[1 << 18];
        stack_t alternate{};
        alternate.ss_sp = room;
        alternate.ss_size = sizeof(room);
        ::sigaltstack(&alternate, nullptr);
        Deny(SYS_clone, SECCOMP_RET_ERRNO | EPERM);
        WriteToNowhere(Nowhere());
    });
    ExpectReports(death, 2);
    EXPECT_EQ(CountOf(ReadFile(death.File(1)), "WriteToNowhere(int volatile*"), 1U);

#ifndef __SANITIZE_THREAD__ // it postpones these signals
    // A call that raises a signal of its own within the handler costs only its own step.
    death = DieOf([] {
        Deny(SYS_clone, SECCOMP_RET_TRAP);
        WriteToNowhere(Nowhere());
    });
    ExpectReports(death, 2);

    death = DieOf([] {
        Deny(SYS_socket, SECCOMP_RET_TRAP);
        ::raise(SIGSYS);
    });
    EXPECT_TRUE(death.ByAbort()) << death.status;
    ExpectFrames(ReadFile(death.File(1)));
    ExpectFrames(ReadFile(death.File(2)));
#endif
}
#endif

} // namespace Nima::Testing
