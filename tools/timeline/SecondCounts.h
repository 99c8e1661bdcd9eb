#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace NimaPost {

/// How often something was counted in each second. Seconds mostly come in their order, and those without a
/// count take no room.
class SecondCounts {
  public:
    void Add(std::int64_t second);

    /// Hands over the counts in the order of time, with a zero after each run of seconds: a counter keeps its
    /// value until the next one.
    template <class Visitor>
    void ForEach(const Visitor& visitor) {
        Settle();
        for (std::size_t i = 0; i < counts_.size(); ++i) {
            visitor(counts_[i].second, counts_[i].count);
            if (i + 1 == counts_.size() || counts_[i + 1].second != counts_[i].second + 1) {
                visitor(counts_[i].second + 1, std::uint32_t{0});
            }
        }
    }

  private:
    struct Count {
        std::int64_t second = 0;
        std::uint32_t count = 0;
    };

    /// Sorts by time, with one count for each second.
    void Settle();

    std::vector<Count> counts_;
};

} // namespace NimaPost
