#pragma once

#include "ctl/block/TraceBlock.h"
#include "tools/base/Output.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace NimaCtl {

/// A copy of the block, taken while its writers go on.
struct Snapshot {
    SysTraceHeader header{};
    std::vector<SysTraceEntry> entries; ///< in slot order, as many as count
    /// Slots that were claimed anew before they had been copied. They are zero, as if never stored.
    std::uint32_t blanked = 0;
};

/// Empty with a reason if the segment was cut, or the trace was cleared again and again meanwhile.
std::optional<Snapshot> TakeSnapshot(const TraceBlock& block, std::string& problem);

/// A dump as the library writes it: a block that has wrapped, or holds nothing, is there as a whole.
void WriteDump(NimaPost::Output& out, const Snapshot& snapshot);

} // namespace NimaCtl
