#pragma once

#include "tools/base/Findings.h"
#include "tools/rings/Rings.h"

namespace NimaPost {

/// Once all rings are ordered: numbers the processes that took them over from each other, the same in all
/// rings.
void TellProcesses(RingSet& set, Findings& findings);

} // namespace NimaPost
