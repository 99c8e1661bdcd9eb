#include "tools/log/CollectedRuns.h"

#include "tools/base/CounterClock.h"

#include <cstdint>
#include <cstdlib>
#include <optional>

namespace NimaPost {

namespace {

/// A date is never read before its stamp, but the clocks of the moment were not read at once.
constexpr std::int64_t kReadApart = 100'000;

/// When a stamp was made, if its date is one of that clock.
std::optional<std::int64_t> TimeOfStamp(const CollectedMoment& moment, std::int64_t counter,
                                        const RawDate& date) {
    std::optional<std::int64_t> best;
    std::int64_t nearest = kDateTakes + 1;
    const std::int64_t step = StepForward(counter, moment.counter);
    for (std::int64_t read = date.Earliest(); read <= date.Earliest() + date.Spread();
         read += kCutMicroseconds * 1000) {
        const std::int64_t passed = moment.local - read;
        const std::int64_t elapsed = passed + NearestStep(Modulo(passed, kCounterPeriod), step);
        const std::int64_t before = read - (moment.local - elapsed);
        if (before >= -kReadApart && std::abs(before) < nearest) {
            nearest = std::abs(before);
            best = moment.local - elapsed;
        }
    }
    return best;
}

} // namespace

std::size_t PinCollectedRuns(const CollectedMoment& moment, std::vector<std::vector<LogPart>>& logs,
                             std::vector<LogRun>& runs) {
    std::size_t later = 0;
    for (const std::vector<LogPart>& parts : logs) {
        for (const LogPart& part : parts) {
            LogRun& run = runs[part.run];
            if (!part.date || !run.wall || run.collected) {
                continue;
            }
            if (part.date->second > moment.local / kSecond + 1) {
                ++later;
            } else if (part.date->second >= moment.bootedAt / kSecond - 1) {
                if (const auto time = TimeOfStamp(moment, part.firstCounter, *part.date)) {
                    run.wall->Pin(*time - part.start);
                    run.collected = true;
                }
            }
        }
    }
    for (std::vector<LogPart>& parts : logs) {
        for (LogPart& part : parts) {
            if (!runs[part.run].collected) {
                continue;
            }
            Certainty& certainty = part.certainty;
            if (certainty.later == Certainty::kUnbounded) {
                part.notAfter = moment.local - OriginOf(runs[part.run]);
            }
            // An older round without a date is bounded by the moment alone, however rounds follow each other.
            if (certainty.premise == Certainty::Premise::kClockNotSet || !part.date) {
                certainty.premise = Certainty::Premise::kNothing;
            }
        }
    }
    return later;
}

} // namespace NimaPost
