#pragma once

#include "tools/axis/Processes.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>

namespace NimaPost {

/// Whose the threads of some records are that lie between two changes of the process.
class Owners {
  public:
    Owners() = default;
    /// Where no known process has any of the threads, one is added that has them all. Where several have
    /// some, each thread is told apart.
    Owners(Processes& processes, const ProcessFacts& facts);

    std::optional<std::size_t> ProcessOf(std::optional<std::uint32_t> thread) const;
    std::optional<std::size_t> BootOf(std::optional<std::uint32_t> thread) const;
    /// The process that wrote the newest of them, by one of its threads.
    std::optional<std::size_t> WriterOf(std::uint32_t thread) const;

  private:
    void Find(const ProcessFacts& facts);
    void DoubtRecurring();

    Processes* processes_ = nullptr;
    std::optional<std::size_t> all_;
    std::map<std::uint32_t, std::optional<std::size_t>> each_;
    std::optional<std::size_t> ofCycle_; ///< the only one that may be of their boot cycle
};

} // namespace NimaPost
