#pragma once

#include <cstddef>
#include <cstdint>
#include <unordered_set>

namespace NimaPost {

/// Dumps repeat what the segment holds, and each other: every record is shown once, from the first source
/// that has it.
class Repeats {
  public:
    /// Within one source nothing counts as a repetition.
    explicit Repeats(std::size_t sources) : several_(sources > 1) {}

    /// Whether the record with this hash was seen before.
    bool Has(std::uint64_t hash) { return several_ && !seen_.insert(hash).second; }

  private:
    bool several_;
    std::unordered_set<std::uint64_t> seen_;
};

} // namespace NimaPost
