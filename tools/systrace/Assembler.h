#pragma once

#include "tools/names/Names.h"
#include "tools/systrace/SysTrace.h"

#include <cstdint>
#include <vector>

namespace NimaPost {

/// Entries of a block in the order of their claims, which in a wrapped block is not that of the file. The
/// first stands in `firstSlot` of `slots`.
struct ClaimedEntries {
    std::vector<SysTraceEntry> entries;
    std::uint32_t firstSlot = 0;
    std::uint32_t slots = 1;
    bool wrapped = false;

    std::uint32_t SlotOf(std::uint32_t position) const { return (firstSlot + position) % slots; }
};

/// Puts the records of a trace together from its entries, whose header and entry count are known, and
/// recovers their times.
void AssembleSysTrace(SysTraceFile& trace, const ClaimedEntries& claimed, const Names& names);

} // namespace NimaPost
