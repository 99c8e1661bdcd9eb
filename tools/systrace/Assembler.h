#pragma once

#include "tools/names/Names.h"
#include "tools/systrace/SysTrace.h"

#include <cstdint>
#include <vector>

namespace NimaPost {

/// Entries of a block in the order in which they were claimed; in a wrapped block that is not the order of
/// the file. The first is in `firstSlot` of `slots`.
struct ClaimedEntries {
    std::vector<SysTraceEntry> entries;
    std::uint32_t firstSlot = 0;
    std::uint32_t slots = 1;
    bool wrapped = false;

    std::uint32_t SlotOf(std::uint32_t position) const { return (firstSlot + position) % slots; }
};

/// Puts the records of a trace together from its entries and recovers their times. The trace's header and
/// entry count must be set.
void AssembleSysTrace(SysTraceFile& trace, const ClaimedEntries& claimed, const Names& names);

} // namespace NimaPost
