#pragma once

#include "tools/crash/StackTrace.h"

#include <string>

namespace NimaPost {

/// The function in which a process failed, "WatchOver(int)+0x11d": the first frame that is neither the crash
/// handler's nor one of those by which a process ends. The frame as it stands where it has no name; empty
/// where there is none.
std::string TopFrame(const StackTrace& stack);

} // namespace NimaPost
