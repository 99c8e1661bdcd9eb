#pragma once

#include "tools/base/Findings.h"
#include "tools/rings/Rings.h"

#include <cstdint>
#include <optional>

namespace NimaPost {

/// Turns a ring's records from slot order into time order and recovers their times. `full`: every slot of the
/// ring has been written at some time. `ticks`: when the dump that contains the ring was begun.
void OrderRing(Ring& ring, bool full, std::optional<std::int64_t> ticks);

/// Orders a ring of a segment by a dump of the same ring: what the dump lacks was written after it. Changes
/// nothing, and returns false, where the two have no record in common or several places would do.
bool OrderByDump(Ring& ring, const Ring& dump);

/// Says of which rings the order is not certain.
void RemarkOnOrder(const RingSet& set, Findings& findings);

} // namespace NimaPost
