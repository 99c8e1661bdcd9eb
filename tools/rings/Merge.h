#pragma once

#include "tools/rings/Rings.h"

#include <vector>

namespace NimaPost {

/// A record in the common order of all rings.
struct MergedRecord {
    std::int64_t time = 0; ///< nanoseconds before the newest of all, so 0 or negative
    const Ring* ring = nullptr;
    const RingRecord* record = nullptr;
};

/// Puts all rings into one order. Nothing recorded ties one ring's seconds to another's, so every ring's
/// newest record is taken to stand less than a second before the newest of all. `ticks` of a dump's head,
/// where there is one, is the moment the rings are measured from.
std::vector<MergedRecord> MergeRings(const RingSet& set);

} // namespace NimaPost
