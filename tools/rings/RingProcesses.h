#pragma once

#include "tools/axis/Processes.h"
#include "tools/base/Findings.h"
#include "tools/rings/Rings.h"

namespace NimaPost {

/// Once all rings are ordered: numbers the processes that took them over from each other, the same in all
/// rings.
void TellProcesses(RingSet& set, Findings& findings);

/// After that: the threads of each of them.
Succession ThreadsOf(const RingSet& set);

} // namespace NimaPost
