#pragma once

#include "tools/commands/Commands.h"
#include "tools/commands/SummaryFacts.h"

namespace NimaPost {

/// On one screen, at most 60 lines.
void PrintSummary(Context& context, const SummaryFacts& facts);

} // namespace NimaPost
