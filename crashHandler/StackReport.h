#pragma once

#include "crashHandler/CrashThreads.h"

#include <libunwind.h>

namespace CrashHandling {

/// Writes the frames of the calling thread's stack to a file, beginning with the caller of the frame in which
/// `context` was captured. It ends whatever the state of the process. It first tries with names; if that
/// hangs, once more, since another thread's lock may be free by then; then with addresses only; and at the
/// least it writes the interrupted instruction. The same thread does not repeat what has failed. Frames at
/// the instruction `leftOut` are skipped. `thread` may be null.
void WriteStack(CrashThread* thread, int descriptor, unw_context_t& context, std::uintptr_t leftOut);

} // namespace CrashHandling
