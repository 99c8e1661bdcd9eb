#pragma once

#include <cstdint>
#include <vector>

#include <Diagnostics/Formats.h>

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

} // namespace NimaPost
