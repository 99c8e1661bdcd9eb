#pragma once

/// Writes the frames of a stack as lines of text. Takes no lock that another thread takes, and allocates
/// nothing. What it keeps (modules, symbol tables, finished lines) exists once per process: only one walk at
/// a time.

#include "crashHandler/StackWalk.h"
#include "crashHandler/WatchedWork.h"

#include <cstdint>

#include <libunwind.h>
#include <sys/types.h>

namespace CrashHandling {

/// What to write, and where.
struct FrameRequest {
    int descriptor;
    unw_context_t* context; ///< captured in the frame whose callers are written
    bool withNames;         ///< otherwise only addresses
    TableSearch search;
    std::uintptr_t leftOut; ///< frames at this instruction are skipped; 0 for none
    off_t begin; ///< an earlier attempt's lines from here on are replaced; -1 if that is not possible
};

/// The work of writing a request's frames.
Work WriteFrames(FrameRequest& request);

/// Writes the line of an instruction for which no name is available.
void WriteNamelessFrame(int descriptor, std::uintptr_t instruction);

/// Sets up everything that takes memory: called while the process is well.
void PrepareFrames();

} // namespace CrashHandling
