#pragma once

/// Writes the frames of a stack as lines of text. Takes no lock that another thread takes and allocates
/// nothing. What it keeps (modules, symbol tables, finished lines) is there once in a process: only one walk
/// at a time.

#include "crashHandler/WatchedWork.h"

#include <cstdint>

#include <libunwind.h>
#include <sys/types.h>

namespace CrashHandling {

/// What to write, and where to.
struct FrameRequest {
    int descriptor;
    unw_context_t* context; ///< captured in the frame whose callers are written
    bool withNames;         ///< else addresses alone, by libunwind's own search for its tables
    std::uintptr_t leftOut; ///< frames at this instruction are passed over; 0 for none
    off_t begin;            ///< an earlier try's lines from here on are replaced; -1 where that cannot be
};

/// The work of writing a request's frames.
Work WriteFrames(FrameRequest& request);

/// Writes the line of an instruction that no name can be had for.
void WriteNamelessFrame(int descriptor, std::uintptr_t instruction);

/// Lets everything be set up that takes memory: called while the process is well.
void PrepareFrames();

} // namespace CrashHandling
