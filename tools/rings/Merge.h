#pragma once

#include "tools/rings/Rings.h"

#include <vector>

namespace NimaPost {

/// A record in the common order of all rings.
struct MergedRecord {
    std::int64_t time = 0; ///< nanoseconds before the newest of all, so it is 0 or negative
    const Ring* ring = nullptr;
    const RingRecord* record = nullptr;
};

/// Puts all rings into one order. No record ties one ring's seconds to another's, so every ring's newest
/// record is assumed to be less than a second before the newest of all. If a dump's head has `ticks`, times
/// are measured from that moment.
std::vector<MergedRecord> MergeRings(const RingSet& set);

} // namespace NimaPost
