#include "tools/log/FollowClock.h"

#include "tools/base/CounterClock.h"
#include "tools/base/InputFile.h"
#include "tools/log/LogSet.h"

#include <algorithm>

namespace NimaPost {

FollowClock::FollowClock(const std::string& path) {
    LogSet logs;
    std::string problem;
    auto file = InputFile::Open(path, problem);
    if (!file || !logs.Take(*file)) {
        return;
    }
    logs.Arrange();
    if (const auto anchor = logs.LastAnchor()) {
        last_ = Moment{anchor->counter, anchor->wall};
    }
}

/// A process that opens the log anew, or a clock that was set, begins another run of times. An earlier date
/// than the last line's stands in a message, unless the clock was set back since.
FollowClock::Reading FollowClock::TakeDate(const LogLine& line, std::int64_t now) {
    const auto date = CalibrationDate(line);
    if (!date) {
        return Reading::kNoDate;
    }
    if (last_) {
        const std::int64_t middle = date->second * kSecond + kSecond / 2;
        const std::int64_t step = StepForward(last_->counter, line.counter);
        const std::int64_t periods =
            std::max<std::int64_t>((middle - last_->time - step) / kCounterPeriod, 0);
        for (std::int64_t k = std::max<std::int64_t>(periods - 1, 0); k <= periods + 1; ++k) {
            const std::int64_t time = last_->time + step + k * kCounterPeriod;
            if (time >= date->second * kSecond - kDateTakes && time < (date->second + 1) * kSecond) {
                last_ = Moment{line.counter, time};
                return Reading::kDate;
            }
        }
        if ((date->second + 2) * kSecond < last_->time && last_->time < now + kSecond) {
            return Reading::kText;
        }
    }
    last_ = Moment{line.counter, date->Earliest()};
    originLater_ = date->Spread();
    return Reading::kDate;
}

void FollowClock::Place(LogEntry& entry, std::int64_t now) {
    const Reading reading = TakeDate(entry.line, now);
    if (!last_) {
        return;
    }
    entry.hasTime = true;
    entry.hasWall = true;
    entry.certainty = {0, 0, false, originLater_};
    if (entry.line.stamped && reading == Reading::kNoDate) {
        const std::int64_t step = StepWithFall(last_->counter, entry.line.counter, kDisorder);
        const std::int64_t earliest = last_->time + step;
        const std::int64_t unseen = std::max<std::int64_t>((now - earliest) / kCounterPeriod, 0);
        last_ = Moment{entry.line.counter, earliest + unseen * kCounterPeriod};
        if (unseen > 0 || earliest > now + kSecond) {
            entry.certainty.earlier = unseen;
            entry.certainty.assumed = true;
        }
    }
    entry.time = last_->time;
}

} // namespace NimaPost
