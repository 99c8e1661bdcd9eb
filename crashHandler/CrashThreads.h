#pragma once

/// The threads that are inside the crash handler, and how each gets over a step that faults. Nothing here
/// takes a lock or allocates; everything is called in signal context.

#include <atomic>
#include <csetjmp>
#include <csignal>
#include <cstddef>
#include <cstdint>

namespace CrashHandling {

/// One thread inside the handler. Only the atomic members are touched by other threads.
struct CrashThread {
    std::atomic<std::uint64_t> holder{0}; ///< process and thread; 0 while the place is free
    /// Its files are not all written and announced yet.
    std::atomic<bool> reporting{false};
    /// The entry with SIGABRT has begun, the last one of a thread.
    bool last = false;
    /// Where a fault within the present step goes.
    sigjmp_buf* recovery = nullptr;
    /// The instruction that the signal interrupted, 0 where there was none.
    std::uintptr_t interrupted = 0;
    /// The handler is called by our own function that the system calls.
    bool calledByUs = false;
    /// A bit for each way of walking the stack that came to no end.
    unsigned failedRungs = 0;
    /// No file could be made the last time.
    bool withoutFile = false;
    /// The name of a file that has not been announced yet.
    const char* unannounced = nullptr;
};

/// The calling thread's place, or null if it has none.
CrashThread* CurrentCrashThread();

/// The calling thread's place, taken if it had none. Null where more threads crash than there are places.
CrashThread* EnterCrashThread();

constexpr std::size_t kMostCrashThreads = 256;
/// The number of a place, from 0.
std::size_t NumberOf(const CrashThread& thread);

/// Tells the threads that wait for others that something is under way.
void NoteCrashActivity();

/// Waits until no other thread has files left to write or announce, at most 500 ms after the last sign of
/// activity.
void WaitForOtherCrashThreads();

/// How much room the calling thread has left where it runs on an alternate stack; there is no telling
/// elsewhere, and the result is the greatest number.
std::size_t RoomOnAlternateStack();

/// Lets synchronous faults through in the calling thread, so that one within the handler finds it.
void UnblockFaults();

/// Keeps SIGPIPE, SIGXCPU, SIGXFSZ and SIGABRT from the calling thread, so that what is written while it
/// reports does not end it, and another's abort waits for the report.
void BlockSideSignals();
void LetAbortThrough();

/// Does a step, and passes over the rest of it where it faults. Returns whether it came to its end.
template <class Step>
[[gnu::noinline]] bool Attempt(CrashThread* thread, const Step& step) {
    if (thread == nullptr) {
        step();
        return true;
    }
    sigjmp_buf here;
    sigjmp_buf* const before = thread->recovery;
    if (sigsetjmp(here, 1) != 0) {
        thread->recovery = before;
        return false;
    }
    thread->recovery = &here;
    UnblockFaults();
    step();
    thread->recovery = before;
    NoteCrashActivity();
    return true;
}

} // namespace CrashHandling
