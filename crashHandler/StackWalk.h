#pragma once

/// Walks a stack, frame by frame, through libunwind. Once `Prepare` has been called, nothing here allocates
/// or takes a lock that other threads take; may be called from a signal handler.

#include "crashHandler/LoadedModules.h"

#include <cstdint>

#include <libunwind.h>

namespace CrashHandling {

struct Frame {
    std::uintptr_t instruction = 0;
    /// The address at which to look up the function. If a signal interrupted the frame, it is that
    /// instruction. Otherwise `instruction` is where a call returns to, which may already be in the next
    /// function.
    std::uintptr_t within = 0;
};

/// Who finds the tables that say how to unwind a frame.
enum class TableSearch {
    Modules, ///< this unit, in the list of modules: needs no lock
    Loader   ///< libunwind, which asks the loader and waits for its lock
};

class StackWalk {
  public:
    /// Sets up what a walk needs, and lets libunwind set up its own tables. That takes memory: call it while
    /// the process is well, from an ordinary thread.
    static void Prepare(const LoadedModules& modules);

    /// Starts at the frame in which `context` was captured; the first `Next` moves to its caller. `context`
    /// and `modules` must outlive the walk.
    StackWalk(unw_context_t& context, const LoadedModules& modules, TableSearch search);

    /// Moves to the next outer frame. Returns false at the end of the stack and if the stack cannot be
    /// followed.
    bool Next(Frame& frame);

  private:
    /// What libunwind's questions are answered from.
    struct Source {
        unw_context_t* context;
        const LoadedModules* modules;
        std::uintptr_t goodPages[16];

        /// Whether a word can be read. A damaged stack leads anywhere; a page that was good once is good for
        /// the rest of the walk.
        bool CanRead(std::uintptr_t address);
    };

    static void MakeSpace();
    static unw_accessors_t Accessors();
    static int FindProcInfo(unw_addr_space_t space, unw_word_t address, unw_proc_info_t* info, int needed,
                            void* argument);
    static int AccessMemory(unw_addr_space_t space, unw_word_t address, unw_word_t* value, int write,
                            void* argument);
    static int AccessRegister(unw_addr_space_t space, unw_regnum_t number, unw_word_t* value, int write,
                              void* argument);

    Source source_;
    unw_cursor_t cursor_;
    unw_word_t stack_ = 0; ///< where the frame's stack begins
    bool started_ = false;
};

} // namespace CrashHandling
