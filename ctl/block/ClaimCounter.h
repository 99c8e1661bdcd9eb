#pragma once

#include "ctl/block/TraceBlock.h"

#include <cstdint>

namespace NimaCtl {

/// Counts the entries that writers claim while a block is looked at now and then. The write index starts
/// again after 2^32 entries, and at nothing when somebody clears the trace; a clear goes unseen only where
/// more was claimed between two looks than had been before it.
class ClaimCounter {
  public:
    explicit ClaimCounter(const TraceBlock& block);

    void Look();
    /// All that were seen; what was claimed between a clear and the look before it is not among them.
    std::uint64_t Claimed() const { return claimed_; }
    /// Those since the trace was cleared last, or since the counting began.
    std::uint64_t SinceClear() const { return sinceClear_; }
    bool Cleared() const { return cleared_; }

  private:
    const TraceBlock& block_;
    std::uint32_t index_ = 0;
    std::int32_t wraps_ = 0;
    std::uint64_t claimed_ = 0;
    std::uint64_t sinceClear_ = 0;
    bool cleared_ = false;
};

} // namespace NimaCtl
