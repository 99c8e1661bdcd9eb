#pragma once

#include "tools/names/Names.h"
#include "tools/systrace/ClaimedEntries.h"
#include "tools/systrace/SysTrace.h"

namespace NimaPost {

/// Puts the records of a trace together from its entries and recovers their times. The trace's header and
/// entry count must be set.
void AssembleSysTrace(SysTraceFile& trace, const ClaimedEntries& claimed, const Names& names);

} // namespace NimaPost
