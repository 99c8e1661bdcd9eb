#include "tools/axis/Axis.h"

#include "tools/base/CounterClock.h"

#include <algorithm>
#include <utility>

namespace NimaPost {

Tie Axis::TieOf(std::int64_t counter, const RawDate& date) const {
    Tie tie{counter, date.Earliest(), TieKind::kHead, date.Spread()};
    if (!logClock_) {
        return tie;
    }
    const std::int64_t middle = date.second * kSecond + kSecond / 2;
    const std::int64_t step = NearestStep(logClock_->counter, counter);
    const std::int64_t periods = (middle - logClock_->time - step) / kCounterPeriod;
    for (std::int64_t k = periods - 1; k <= periods + 1; ++k) {
        const std::int64_t time = logClock_->time + step + k * kCounterPeriod;
        // The logs' wall clock is known to a second at best, as long as the clock was not set.
        if (time >= date.second * kSecond - kSecond / 1000 && time < (date.second + 1) * kSecond) {
            tie.time = time;
            // The date itself bounds it, and the logs' clock may do better.
            tie.later = std::max<std::int64_t>(date.Earliest() + date.Spread() - time, 0);
            tie.later = logClock_->later > 0 ? std::min(tie.later, logClock_->later) : tie.later;
        }
    }
    return tie;
}

void Axis::SetCollection(Collection collection) {
    collection_ = std::move(collection);
    newest_ = Tie{collection_->moment.counter, collection_->moment.local, TieKind::kCollected};
    hasWall_ = true;
}

std::optional<Tie> Axis::TieOfFile(std::size_t file) const {
    const bool mapped = collection_ && collection_->mapped.contains(file);
    return mapped ? Tie{collection_->moment.counter, collection_->moment.local, TieKind::kCollected}
                  : newest_;
}

std::optional<std::int64_t> Axis::CallOf(std::uint32_t eventType, std::uint32_t eventId) const {
    std::optional<std::int64_t> time;
    for (const CallbackMark& mark : callbacks_) {
        if (mark.eventType == eventType && mark.eventId == eventId) {
            if (time) {
                return std::nullopt;
            }
            time = mark.time;
        }
    }
    return time;
}

} // namespace NimaPost
