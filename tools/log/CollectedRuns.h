#pragma once

#include "tools/log/LogParts.h"
#include "tools/log/TimePlacer.h"
#include "tools/manifest/Manifest.h"

#include <cstddef>
#include <vector>

namespace NimaPost {

/// Finds the runs of the boot in which the files were collected: their dates and counters fit the clocks of
/// that moment. Their wall clock is then known exactly, and none of their lines is later than the moment.
/// Returns how many dates are later than it, which contradicts it.
std::size_t PinCollectedRuns(const CollectedMoment& moment, std::vector<std::vector<LogPart>>& logs,
                             std::vector<LogRun>& runs);

} // namespace NimaPost
