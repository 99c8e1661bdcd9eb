#pragma once

#include "ctl/block/TraceBlock.h"

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>

namespace NimaCtl {

/// What was written while the block was watched, and who wrote last.
struct Activity {
    double seconds = 0;
    std::uint64_t entries = 0;     ///< claimed in that time
    double records = 0;            ///< begun in that time; of many entries, only the last are counted
    bool estimated = false;        ///< that there were too many entries to count
    bool cleared = false;          ///< the block was emptied meanwhile; then nothing is counted
    std::uint64_t lastRecords = 0; ///< how many complete records the writers below have written
    std::map<std::uint32_t, std::uint64_t> writers; ///< records by thread, among the last
    /// How many entries the last ones have after the begin of a dump; empty if there is none, or it has
    /// ended.
    std::optional<std::size_t> sinceDumpBegan;
};

/// Watches for that long.
Activity Watch(const TraceBlock& block, std::chrono::nanoseconds time);

} // namespace NimaCtl
