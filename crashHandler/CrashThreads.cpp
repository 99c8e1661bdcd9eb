#include "crashHandler/CrashThreads.h"

#include "crashHandler/Moments.h"

#include <initializer_list>

#include <pthread.h>
#include <unistd.h>

namespace CrashHandling {

namespace {

constinit CrashThread g_Threads[kMostCrashThreads];
constinit std::atomic<unsigned> g_Activity{0};

void ChangeMask(int how, std::initializer_list<int> signals) {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signal : signals) {
        ::sigaddset(&set, signal);
    }
    ::pthread_sigmask(how, &set, nullptr);
}

/// The caller in one number. A place that a forked child inherited belongs to nobody there.
std::uint64_t Caller() {
    return static_cast<std::uint64_t>(::getpid()) << 32U | static_cast<std::uint32_t>(::gettid());
}

bool IsOfThisProcess(std::uint64_t holder) {
    return holder >> 32U == static_cast<std::uint64_t>(::getpid());
}

/// Whether a thread of this process has said so. What a forked child has inherited is of another one.
bool Any(std::atomic<bool> CrashThread::*said, const CrashThread* besides = nullptr) {
    for (const CrashThread& thread : g_Threads) {
        if (&thread != besides && (thread.*said).load() && IsOfThisProcess(thread.holder.load())) {
            return true;
        }
    }
    return false;
}

CrashThread* FindPlace(std::uint64_t holder) {
    for (CrashThread& thread : g_Threads) {
        if (thread.holder.load(std::memory_order_relaxed) == holder) {
            return &thread;
        }
    }
    return nullptr;
}

CrashThread* TakePlace(std::uint64_t caller) {
    for (CrashThread& thread : g_Threads) {
        std::uint64_t holder = thread.holder.load();
        if (!IsOfThisProcess(holder) && thread.holder.compare_exchange_strong(holder, caller)) {
            thread.last = false;
            thread.recovery = nullptr;
            thread.interrupted = 0;
            thread.calledByUs = false;
            thread.failedRungs = 0;
            thread.withoutFile = false;
            thread.unannounced = nullptr;
            thread.syncing.store(false);
            thread.ending.store(false);
            return &thread;
        }
    }
    return nullptr;
}

/// A thread that comes when another is about to end the process must not begin a file that nobody would hear
/// of. Either it sees that end coming, or the other sees that it reports.
void BeginToReport(CrashThread& thread) {
    const long long begin = Milliseconds();
    for (;;) {
        thread.reporting.store(true);
        if (!Any(&CrashThread::ending) || Milliseconds() - begin > kMostPatience) {
            return;
        }
        thread.reporting.store(false);
        PauseFor(1000000);
    }
}

/// Whether the process may end now. Threads that come later wait for that.
bool MayEnd(CrashThread* self) {
    if (self != nullptr) {
        self->ending.store(true);
    }
    const bool may = !Any(&CrashThread::reporting, self);
    if (self != nullptr && !may) {
        self->ending.store(false);
    }
    return may;
}

} // namespace

CrashThread* CurrentCrashThread() {
    return FindPlace(Caller());
}

CrashThread* EnterCrashThread() {
    const std::uint64_t caller = Caller();
    if (CrashThread* const known = FindPlace(caller)) {
        known->reporting.store(true);
        return known;
    }
    CrashThread* const entered = TakePlace(caller);
    if (entered != nullptr) {
        BeginToReport(*entered);
    }
    return entered;
}

std::size_t NumberOf(const CrashThread& thread) {
    return static_cast<std::size_t>(&thread - g_Threads);
}

void NoteCrashActivity() {
    g_Activity.fetch_add(1);
}

void WaitForOtherCrashThreads() {
    CrashThread* const self = CurrentCrashThread();
    const long long begin = Milliseconds();
    long long now = begin;
    long long sign = begin;
    long long disk = 0; ///< time that others have waited for it
    unsigned seen = g_Activity.load();
    while (!MayEnd(self)) {
        const long long before = now;
        now = Milliseconds();
        const bool syncing = disk < kDiskPatience && Any(&CrashThread::syncing);
        disk += syncing ? now - before : 0;
        if (const unsigned activity = g_Activity.load(); syncing || activity != seen) {
            seen = activity;
            sign = now;
        }
        if (now - sign > kPatience || now - begin - disk > kMostPatience) {
            return;
        }
        PauseFor(1000000);
    }
}

bool AnotherThreadCrashed() {
    const std::uint64_t caller = Caller();
    for (const CrashThread& thread : g_Threads) {
        const std::uint64_t holder = thread.holder.load();
        if (holder != caller && IsOfThisProcess(holder)) {
            return true;
        }
    }
    return false;
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
