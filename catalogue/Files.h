#pragma once

/// The files whose names the library chooses, all in the process's working directory.

#include "catalogue/Text.h"

namespace Nima::Catalogue {

inline constexpr TwoWidths kSysTraceSegment("SysTrace Buffer");
inline constexpr TwoWidths kRingSegment("System Ring Buffers");
/// The dump that a crash writes into the triage folder.
inline constexpr TwoWidths kSysTraceDump("SysTrace.bin");

/// A stack-trace file is "stacktrace<process id>-<number>.txt".
inline constexpr char kStackTracePrefix[] = "stacktrace";
inline constexpr char kStackTraceSuffix[] = ".txt";

} // namespace Nima::Catalogue
