#pragma once

/// The threads inside the crash handler, and how each of them survives a step that faults. Nothing here takes
/// a lock or allocates; everything is called in signal context.

#include <atomic>
#include <csetjmp>
#include <csignal>
#include <cstddef>
#include <cstdint>

namespace CrashHandling {

/// One thread inside the handler. Only the atomic members are touched by other threads.
struct CrashThread {
    std::atomic<std::uint64_t> holder{0}; ///< process and thread; 0 while the place is free
    /// Some of its files are not yet written and announced.
    std::atomic<bool> reporting{false};
    /// It waits for the disk, which may take long.
    std::atomic<bool> syncing{false};
    /// It is about to end the process, since no other thread reports.
    std::atomic<bool> ending{false};
    /// The thread's last entry, the one with SIGABRT, has begun.
    bool last = false;
    /// Where to continue after a fault in the current step.
    sigjmp_buf* recovery = nullptr;
    /// The instruction that the signal interrupted, 0 if there was none.
    std::uintptr_t interrupted = 0;
    /// The handler was called by our own function, which the system calls.
    bool calledByUs = false;
    /// A bit for each way of walking the stack that did not finish.
    unsigned failedRungs = 0;
    /// The last attempt to create a file failed.
    bool withoutFile = false;
    /// The name of a file that has not been announced yet.
    const char* unannounced = nullptr;
};

/// The calling thread's place, or null if it has none.
CrashThread* CurrentCrashThread();

/// The calling thread's place, taken if it had none. Null if more threads crash than there are places.
CrashThread* EnterCrashThread();

constexpr std::size_t kMostCrashThreads = 256;
/// The number of a place, from 0.
std::size_t NumberOf(const CrashThread& thread);

/// Shows the threads that wait for others that there is progress.
void NoteCrashActivity();

/// Waits until no other thread has files left to write or announce, but at most 500 ms after the last sign of
/// progress and 3 s in all; up to 30 s longer while one of them waits for the disk.
void WaitForOtherCrashThreads();

/// Whether another thread of this process has crashed. It ends the process by an abort.
bool AnotherThreadCrashed();

/// The room that the calling thread has left on its alternate stack. If it is not running on one, this is not
/// known, and the result is the largest number.
std::size_t RoomOnAlternateStack();

/// Unblocks synchronous faults in the calling thread, so that a fault within the handler reaches it.
void UnblockFaults();

/// Blocks SIGPIPE, SIGXCPU, SIGXFSZ and SIGABRT in the calling thread, so that its own writing does not end
/// it while it reports, and another thread's abort waits for the report.
void BlockSideSignals();
void LetAbortThrough();

/// Does a step, and skips the rest of it if it faults. Returns whether it finished.
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
