#pragma once

#include "tools/log/LogParts.h"

#include <vector>

namespace NimaPost {

/// Of logs whose first line is by a thread that wrote none of the others: finds out whether these may be
/// older, of a process whose first line was written over (doc/clock.md). Sets `mayBeOlder`.
void JudgeSilentOpeners(std::vector<std::vector<LogPart>>& logs);

} // namespace NimaPost
