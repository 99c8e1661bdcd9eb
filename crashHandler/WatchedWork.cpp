#include "crashHandler/WatchedWork.h"

#include "crashHandler/Moments.h"

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <initializer_list>
#include <new>

#include <sched.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

namespace CrashHandling {

namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kStackSize = std::size_t{256} * 1024;
constexpr std::size_t kRoomInPlace = std::size_t{48} * 1024;

constexpr long long kMostSilence = 400;
constexpr long kMostTimeInPlace = 1;

constexpr int kFailed = 1;

/// How many descriptors, counted from 0, a child closes.
constexpr int kClosed = 16;
/// What the C library's `clone` keeps on the child's stack before the child has memory of its own.
constexpr std::size_t kStackSlot = 64;

/// What parent and child share.
struct Shared {
    std::atomic<std::uint32_t> steps{0};
    std::atomic<bool> done{false};
};

struct Errand {
    Work work;
    Shared* shared;
};

constinit unsigned char* g_Stack = nullptr;
/// The child's errand, for the handler of its faults.
constinit Errand* g_Errand = nullptr;

unsigned char* MapStack() {
    void* const mapped =
        ::mmap(nullptr, kPage + kStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) {
        return nullptr;
    }
    ::mprotect(mapped, kPage, PROT_NONE);
    return static_cast<unsigned char*>(mapped) + kPage;
}

[[noreturn]] void EndChild(int status) {
    for (;;) {
        ::syscall(SYS_exit_group, status);
    }
}

void SetHandler(int number, void (*handler)(int), int flags) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = flags;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(number, &action, nullptr);
}

void OnChildFault(int /*signal*/) {
    for (const int number : {SIGSEGV, SIGBUS}) {
        SetHandler(number, SIG_DFL, 0);
    }
    g_Errand->work.salvage(g_Errand->work.argument);
    EndChild(kFailed);
}

void TakeOverFaults() {
    for (const int number : {SIGILL, SIGTRAP, SIGFPE, SIGSYS, SIGABRT}) {
        SetHandler(number, SIG_DFL, 0);
    }
    for (const int number : {SIGSEGV, SIGBUS}) {
        SetHandler(number, OnChildFault, 0);
    }
    UnblockFaults();
}

/// The dying process may be at its limits; the child needs little.
void MakeRoomInChild(int needed) {
    for (int descriptor = 0; descriptor < kClosed; ++descriptor) {
        if (descriptor != needed) {
            ::close(descriptor);
        }
    }
    rlimit space{};
    if (::getrlimit(RLIMIT_AS, &space) == 0) {
        space.rlim_cur = space.rlim_max;
        ::setrlimit(RLIMIT_AS, &space);
    }
}

int ChildMain(void* argument) {
    g_Errand = static_cast<Errand*>(argument);
    // It must neither outlive the process nor leave a core file in its place.
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::prctl(PR_SET_DUMPABLE, 0);
    TakeOverFaults();
    MakeRoomInChild(g_Errand->work.descriptor);
    const bool done = g_Errand->work.run(g_Errand->work.argument, g_Errand->shared->steps);
    g_Errand->shared->done.store(done);
    EndChild(done ? 0 : kFailed);
}

/// The child ends without a signal, so that neither a handler nor a `wait` of the host sees it; if the system
/// insists on one, it is the usual SIGCHLD. Every thread starts at its own end of the stack. In the child all
/// signals are blocked except those of its faults: the host's handlers must not run there.
pid_t StartChild(const CrashThread* thread, Errand& errand) {
    const std::size_t number = thread != nullptr ? NumberOf(*thread) : kMostCrashThreads;
    unsigned char* const end = g_Stack + kStackSize - number * kStackSlot;
    sigset_t all;
    sigset_t before;
    ::sigfillset(&all);
    ::pthread_sigmask(SIG_SETMASK, &all, &before);
    UnblockFaults();
    int child = -1;
    for (const int endSignal : {0, SIGCHLD}) {
        child = ::clone(ChildMain, end, endSignal, &errand);
        if (child != -1) {
            break;
        }
    }
    ::pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return child;
}

/// Whether the child has ended. It is no longer a child if the host has waited for it or ignores its
/// children.
bool HasEnded(pid_t child) {
    const pid_t ended = ::waitpid(child, nullptr, WNOHANG | __WALL);
    return ended == child || (ended == -1 && errno == ECHILD);
}

void EndByForce(pid_t child) {
    ::kill(child, SIGKILL);
    const long long begin = Milliseconds();
    while (!HasEnded(child) && Milliseconds() - begin < kMostSilence) {
        PauseFor(1000000);
    }
}

WorkEnd Watch(pid_t child, const Shared& shared) {
    constexpr long kFirstPause = 50000;
    constexpr long kLongestPause = 2000000;
    const long long begin = Milliseconds();
    long long gotOn = begin;
    std::uint32_t steps = 0;
    for (long pause = kFirstPause; !HasEnded(child); pause = pause < kLongestPause ? pause * 2 : pause) {
        const long long now = Milliseconds();
        if (const std::uint32_t present = shared.steps.load(); present != steps) {
            steps = present;
            gotOn = now;
            NoteCrashActivity();
        }
        if (now - gotOn > kMostSilence || now - begin > kMostPatience) {
            EndByForce(child);
            return now - gotOn > kMostSilence ? WorkEnd::Hung : WorkEnd::TooLong;
        }
        PauseFor(pause);
    }
    return shared.done.load() ? WorkEnd::Done : WorkEnd::Failed;
}

/// The thread that works in place, for a timer that is not aimed at it.
constinit std::atomic<pid_t> g_InPlace{0};

/// One thread at a time: the work's data exists only once.
bool TakePlace() {
    const long long begin = Milliseconds();
    for (pid_t nobody = 0; !g_InPlace.compare_exchange_strong(nobody, ::gettid()); nobody = 0) {
        if (Milliseconds() - begin > kMostTimeInPlace * 1000) {
            return false;
        }
        PauseFor(1000000);
    }
    return true;
}

void OnTime(int number) {
    const pid_t thread = g_InPlace.load();
    if (thread != ::gettid()) {
        if (thread != 0) {
            ::syscall(SYS_tgkill, ::getpid(), thread, number);
        }
        return;
    }
    CrashThread* const self = CurrentCrashThread();
    if (self != nullptr && self->recovery != nullptr) {
        siglongjmp(*self->recovery, 1);
    }
}

/// Raises SIGALRM in the calling thread once its time is up. The process is dying and has no other use for
/// the signal.
class Alarm {
  public:
    Alarm() {
        SetHandler(SIGALRM, OnTime, 0);
        sigset_t alarms;
        ::sigemptyset(&alarms);
        ::sigaddset(&alarms, SIGALRM);
        ::pthread_sigmask(SIG_UNBLOCK, &alarms, nullptr);
        sigevent event{};
        event.sigev_notify = SIGEV_THREAD_ID;
        event.sigev_signo = SIGALRM;
        event._sigev_un._tid = ::gettid();
        const long times[] = {0, 0, kMostTimeInPlace,
                              0}; // as the kernel expects them: interval, then first expiry
        isSet_ = ::syscall(SYS_timer_create, CLOCK_MONOTONIC, &event, &timer_) == 0 &&
                 ::syscall(SYS_timer_settime, timer_, 0, times, nullptr) == 0;
        if (!isSet_) {
            const itimerval whole{{0, 0}, {kMostTimeInPlace, 0}};
            isSet_ = ::setitimer(ITIMER_REAL, &whole, nullptr) == 0;
        }
    }
    Alarm(const Alarm&) = delete;
    Alarm& operator=(const Alarm&) = delete;
    ~Alarm() {
        const long never[] = {0, 0, 0, 0};
        ::syscall(SYS_timer_settime, timer_, 0, never, nullptr);
        const itimerval none{};
        ::setitimer(ITIMER_REAL, &none, nullptr);
    }

    bool isSet() const { return isSet_; }

  private:
    int timer_ = -1;
    bool isSet_ = false;
};

} // namespace

bool PrepareChildren() {
    if (g_Stack == nullptr) {
        g_Stack = MapStack();
    }
    return g_Stack != nullptr;
}

WorkEnd DoInChild(const CrashThread* thread, const Work& work) {
    if (!PrepareChildren()) {
        return WorkEnd::NotTried;
    }
    void* const mapped = ::mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) {
        return WorkEnd::NotTried;
    }
    auto* const shared = new (mapped) Shared;
    Errand errand{work, shared};
    const pid_t child = StartChild(thread, errand);
    const WorkEnd end = child != -1 ? Watch(child, *shared) : WorkEnd::NotTried;
    ::munmap(mapped, kPage);
    return end;
}

WorkEnd DoInPlace(CrashThread* thread, const Work& work) {
    if (thread == nullptr || RoomOnAlternateStack() < kRoomInPlace || !TakePlace()) {
        return WorkEnd::NotTried;
    }
    WorkEnd end = WorkEnd::NotTried;
    {
        const Alarm alarm;
        if (alarm.isSet()) {
            std::atomic<std::uint32_t> steps{0};
            bool done = false;
            const bool ended = Attempt(thread, [&] { done = work.run(work.argument, steps); });
            if (!ended) {
                Attempt(thread, [&] { work.salvage(work.argument); });
            }
            end = ended && done ? WorkEnd::Done : WorkEnd::Failed;
        }
    }
    g_InPlace.store(0);
    return end;
}

} // namespace CrashHandling
