#pragma once

#include "crashHandler/CrashThreads.h"

#include <libunwind.h>

namespace CrashHandling {

/// Writes the frames of the calling thread's stack to a file, beginning with the caller of the frame in which
/// `context` was captured. Comes to an end whatever the state of the process: with names; where that hangs,
/// once more, since another thread's lock may be free by then; with addresses alone; at least with the
/// interrupted instruction. What failed is not tried again by the same thread. Frames at the instruction
/// `leftOut` are passed over. `thread` may be null.
void WriteStack(CrashThread* thread, int descriptor, unw_context_t& context, std::uintptr_t leftOut);

} // namespace CrashHandling
