#pragma once

/// Work that may hang or fault, done by the dying process under watch.

#include "crashHandler/CrashThreads.h"

#include <atomic>
#include <cstdint>

namespace CrashHandling {

/// Something to do. It adds 1 to `steps` whenever it makes progress, and returns whether it finished.
struct Work {
    bool (*run)(void* argument, std::atomic<std::uint32_t>& steps);
    /// Saves what there is after a fault in the middle of `run`.
    void (*salvage)(void* argument);
    void* argument;
    int descriptor; ///< the one that it needs; a child closes others to make room
};

enum class WorkEnd {
    Done,
    Failed,  ///< it reported failure, or it faulted
    Hung,    ///< it no longer made progress
    TooLong, ///< it made progress, but did not end
    NotTried ///< it could not be started
};

/// Sets up what `DoInChild` needs, while the process is well. Returns false if memory runs out.
bool PrepareChildren();

/// Does the work in a copy of this process, on a stack of its own, with this thread as its only one. Memory
/// that it writes is its own; descriptors are shared. The copy is made without the `fork` handlers, which
/// take locks. Whatever the work waits for or breaks, this returns: 400 ms after the last step, or after 3 s.
/// `thread` is the caller's place, or null.
WorkEnd DoInChild(const CrashThread* thread, const Work& work);

/// Does the work in this thread, for at most 1 s. Needs a place for the thread, a timer, and 48 KB of stack.
WorkEnd DoInPlace(CrashThread* thread, const Work& work);

} // namespace CrashHandling
