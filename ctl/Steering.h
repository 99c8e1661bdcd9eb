#pragma once

#include "ctl/TraceBlock.h"

#include <chrono>
#include <cstdint>

namespace NimaCtl {

/// Bits of a filter to clear, and bits to set after that.
struct FilterChange {
    Filter clear{};
    Filter set{};

    void Open(std::uint32_t component, std::uint32_t level);
    void Close(std::uint32_t component, std::uint32_t level);
    void CloseAll() { clear.fill(0xFFFFFFFF); }

    std::uint32_t Of(std::uint32_t word, std::size_t index) const {
        return (word & ~clear[index]) | set[index];
    }
    bool IsIn(const Filter& filter) const;
};

struct SteeringResult {
    Filter before{};
    Filter after{};
    bool held = false;    ///< a dump, running or killed, still holds the filter; both filters have the change
    unsigned repeats = 0; ///< how often a dump undid the change
};

/// Changes the filter while processes trace and dump. A dump copies the live filter to the saved one, clears
/// the live one, and copies it back at its end, all without a lock; it may undo a change at each of these
/// steps. While a dump holds the filter, the change therefore goes into both. It counts as done once it has
/// stayed for a while with no dump holding the filter, and is repeated where it was lost.
///
/// Nothing is ever cleared in the saved filter but what the change clears, so that whatever a dump brings
/// back was in it.
SteeringResult Steer(const TraceBlock& block, const FilterChange& change, std::chrono::nanoseconds patience);

/// Copies the saved filter to the live one and leaves the saved one: a dump that lives after all then still
/// brings back what it set aside.
void BringBack(const TraceBlock& block);

/// Empties the trace: stores the two indices that it has before its first record. Writers go on meanwhile.
void ClearTrace(const TraceBlock& block);

/// Waits until no other nima-ctl changes this block. The turn ends with the block's last use. Returns false,
/// with a reason, if it does not come.
bool TakeTurn(const TraceBlock& block, std::string& problem);

} // namespace NimaCtl
