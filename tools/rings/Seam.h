#pragma once

#include "tools/base/Findings.h"
#include "tools/rings/Rings.h"

#include <cstdint>
#include <optional>

namespace NimaPost {

/// Turns a ring's records from slot order into time order and recovers their times. `full`: every slot of the
/// ring has been written at some time. `ticks`: when the dump that contains the ring was begun.
void OrderRing(Ring& ring, bool full, std::optional<std::int64_t> ticks);

/// Says of which rings the order is not certain.
void RemarkOnOrder(const RingSet& set, Findings& findings);

} // namespace NimaPost
