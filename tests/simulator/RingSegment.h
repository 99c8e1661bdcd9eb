#pragma once

#include "tests/simulator/Process.h"

#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <Diagnostics/Formats.h>

namespace Simulator {

/// The rings that processes leave to each other. Each process that lays them out starts at slot 0 of every
/// ring.
class RingSegment {
  public:
    explicit RingSegment(World& world);

    /// Lays the rings out anew, and returns what the process's threads write: events in a few of the rings,
    /// with their serial numbers as first argument.
    Output LayOut(Process& process);

    /// What the library records in its own ring while a thread writes a crash log.
    void Own(std::uint32_t thread);
    /// A boot may empty the memory that they are in.
    void Clear();

    /// The segment as it is in the working directory.
    void StoreSegment();
    /// "BEGIN RING BUFFER DUMP" and what follows it. Adds the serial numbers of the records.
    std::string Text(std::set<std::uint64_t>& records) const;

  private:
    /// Where a process writes next.
    using Indices = std::vector<std::uint32_t>;

    RingBufferData& SlotOf(std::size_t ring, std::uint32_t index);

    World& world_;
    RingDirectory directory_{};
    std::vector<std::vector<RingBufferData>> rings_;
    std::vector<std::size_t> used_;
    std::uint32_t nextOwn_ = 0;
};

} // namespace Simulator
