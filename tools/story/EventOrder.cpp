#include "tools/story/EventOrder.h"

#include "tools/story/TimeBound.h"

#include <algorithm>
#include <limits>

namespace NimaPost {

EventOrder::EventOrder(const Processes& processes) : boots_(BeginningsOf(processes)) {
    std::int64_t ended = std::numeric_limits<std::int64_t>::min();
    bool inOrder = true;
    for (const auto& [boot, began] : boots_) {
        inOrder = inOrder && began >= ended;
        for (const ProcessFacts& facts : processes.All()) {
            ended = facts.boot == boot && facts.last ? std::max(ended, *facts.last) : ended;
        }
    }
    if (inOrder) {
        boots_.clear();
    }
}

EventOrder::Key EventOrder::KeyOf(std::optional<std::int64_t> time, std::optional<std::size_t> boot) const {
    if (!time) {
        return {std::numeric_limits<std::size_t>::max(), 0};
    }
    std::size_t place = boots_.empty() ? 0 : boot.value_or(0);
    for (const auto& [number, began] : boots_) {
        if (!boot && (place == 0 || began <= *time)) {
            place = number;
        }
    }
    return {place, *time};
}

} // namespace NimaPost
