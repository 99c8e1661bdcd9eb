#include "tools/story/FileTimes.h"

#include "tools/base/CounterClock.h"

namespace NimaPost {

namespace {

/// Zones differ by quarters of an hour, and by 14 hours at most.
constexpr std::int64_t kZoneStep = 15 * std::int64_t{60} * kSecond;
constexpr std::int64_t kMostZoneSteps = 14 * std::int64_t{4};
/// A dump is finished a while after its head. Dates are cut, and times of logs the earliest possible.
constexpr std::int64_t kMostAfter = 5 * kSecond;
constexpr std::int64_t kMostBefore = 2 * kSecond;

} // namespace

void FileTimes::Compare(std::int64_t modified, std::int64_t local, bool inOneGo) {
    const std::int64_t away = local - modified + kMostAfter;
    const std::int64_t rest = Modulo(away, kZoneStep);
    const std::int64_t steps = (away - rest) / kZoneStep;
    if (rest <= kMostAfter + kMostBefore && steps >= -kMostZoneSteps && steps <= kMostZoneSteps) {
        offset_ = steps * kZoneStep;
    } else {
        contradicted_ = contradicted_ || inOneGo;
    }
}

std::optional<std::int64_t> FileTimes::Local(std::int64_t modified) const {
    return Kept() ? std::optional(modified + (known_ ? *known_ : *offset_)) : std::nullopt;
}

} // namespace NimaPost
