#pragma once

#include "tools/base/Output.h"
#include "tools/fleet/Database.h"
#include "tools/fleet/Ranking.h"

#include <vector>

namespace NimaPost {

/// What the page shows of each signature, in their order, as page/main.js describes it.
Json SignaturesForPage(const Database& database, const std::vector<RankedSignature>& ranked);

} // namespace NimaPost
