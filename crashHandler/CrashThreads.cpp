#include "crashHandler/CrashThreads.h"

#include "crashHandler/Moments.h"

#include <initializer_list>

#include <pthread.h>
#include <unistd.h>

namespace CrashHandling {

namespace {

constexpr int kMostThreads = 64;
constexpr long long kPatience = 500;
constexpr long long kMostPatience = 3000;

constinit CrashThread g_Threads[kMostThreads];
constinit std::atomic<unsigned> g_Activity{0};

void ChangeMask(int how, std::initializer_list<int> signals) {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signal : signals) {
        ::sigaddset(&set, signal);
    }
    ::pthread_sigmask(how, &set, nullptr);
}

bool OthersReport(const CrashThread* self) {
    const pid_t process = ::getpid();
    for (const CrashThread& thread : g_Threads) {
        // A place that a forked child inherited is nobody's there.
        if (&thread != self && thread.reporting.load() && thread.process.load() == process) {
            return true;
        }
    }
    return false;
}

} // namespace

CrashThread* CurrentCrashThread() {
    const pid_t id = ::gettid();
    const pid_t process = ::getpid();
    for (CrashThread& thread : g_Threads) {
        if (thread.thread.load(std::memory_order_relaxed) == id && thread.process.load() == process) {
            return &thread;
        }
    }
    return nullptr;
}

CrashThread* EnterCrashThread() {
    CrashThread* entered = CurrentCrashThread();
    const pid_t id = ::gettid();
    const pid_t process = ::getpid();
    for (int i = 0; entered == nullptr && i < kMostThreads; ++i) {
        pid_t holder = 0;
        if (g_Threads[i].thread.compare_exchange_strong(holder, id) ||
            (g_Threads[i].process.load() != process &&
             g_Threads[i].thread.compare_exchange_strong(holder, id))) {
            entered = &g_Threads[i];
            entered->last = false;
            entered->recovery = nullptr;
            entered->interrupted = 0;
            entered->calledByUs = false;
            entered->failedRungs = 0;
            entered->withoutFile = false;
            entered->unannounced = nullptr;
            entered->process.store(process);
        }
    }
    if (entered != nullptr) {
        entered->reporting.store(true);
    }
    return entered;
}

void NoteCrashActivity() {
    g_Activity.fetch_add(1);
}

void WaitForOtherCrashThreads() {
    const CrashThread* const self = CurrentCrashThread();
    const long long begin = Milliseconds();
    long long sign = begin;
    unsigned seen = g_Activity.load();
    while (OthersReport(self)) {
        const long long now = Milliseconds();
        if (const unsigned activity = g_Activity.load(); activity != seen) {
            seen = activity;
            sign = now;
        }
        if (now - sign > kPatience || now - begin > kMostPatience) {
            return;
        }
        PauseFor(1000000);
    }
}

std::size_t RoomOnAlternateStack() {
    stack_t alternate{};
    if (::sigaltstack(nullptr, &alternate) != 0 || (alternate.ss_flags & SS_ONSTACK) == 0) {
        return ~std::size_t{0};
    }
    return reinterpret_cast<std::uintptr_t>(__builtin_frame_address(0)) -
           reinterpret_cast<std::uintptr_t>(alternate.ss_sp);
}

void UnblockFaults() {
    ChangeMask(SIG_UNBLOCK, {SIGSEGV, SIGILL, SIGTRAP, SIGFPE, SIGBUS, SIGSYS});
}

void BlockSideSignals() {
    ChangeMask(SIG_BLOCK, {SIGPIPE, SIGXCPU, SIGXFSZ, SIGABRT});
}

void LetAbortThrough() {
    ChangeMask(SIG_UNBLOCK, {SIGABRT});
}

} // namespace CrashHandling
