#pragma once

#include "tools/systrace/SysTrace.h"

namespace NimaPost {

/// Finds where one process took the block over from another: its stretches.
void PartProcesses(SysTraceFile& trace);

/// The clock is run anew for each stretch, since the device may have restarted in between.
void RecoverTimes(SysTraceFile& trace);

} // namespace NimaPost
