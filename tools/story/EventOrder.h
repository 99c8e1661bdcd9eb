#pragma once

#include "tools/axis/Processes.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>

namespace NimaPost {

/// The order of what happened: of boots, and within each of times. A clock that was set back between two
/// boots puts the later one's times before the earlier one's.
class EventOrder {
  public:
    using Key = std::pair<std::size_t, std::int64_t>;

    EventOrder() = default;
    explicit EventOrder(const Processes& processes);

    /// What has no time comes last. What is of no known boot goes with the last one that had begun by then.
    Key KeyOf(std::optional<std::int64_t> time, std::optional<std::size_t> boot) const;
    /// Whether times alone give the order.
    bool IsThatOfTimes() const { return boots_.empty(); }

  private:
    std::map<std::size_t, std::int64_t> boots_; ///< when each began; empty where times give their order
};

} // namespace NimaPost
