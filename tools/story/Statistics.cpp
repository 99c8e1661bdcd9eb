#include "tools/story/Statistics.h"

#include "tools/base/CounterClock.h"
#include "tools/story/MergedStory.h"
#include "tools/story/TimeBound.h"

#include <algorithm>

namespace NimaPost {

namespace {

constexpr std::size_t kMostGaps = 5;
/// Shorter ones are the pace of a device at rest.
constexpr std::int64_t kShortestGap = 2 * kSecond;

class Collector {
  public:
    explicit Collector(const Story& story)
        : crashes_(story.Crashes()), hasOneBoot_(BeginningsOf(story.Time().AllProcesses()).size() < 2) {
        result_.firstErrors.resize(crashes_.size());
    }

    void Take(const TimelineEvent& event) {
        if (event.level == kCrashLevel && event.kind == EventKind::kRecord) {
            TakeCrash(event);
            return;
        }
        result_.Take(event);
        if (event.kind == EventKind::kText && event.time && !event.continued) {
            TakeGap(event);
            TakeError(event);
        }
    }

    Statistics Result() {
        std::stable_sort(result_.gaps.begin(), result_.gaps.end(),
                         [](const auto& a, const auto& b) { return a.length > b.length; });
        return std::move(result_);
    }

  private:
    /// Between lines of one process; what lies between two is the device's rest.
    void TakeGap(const TimelineEvent& event) {
        const auto process = event.process;
        if (lastLine_ && process == lastProcess_ && *event.time - *lastLine_ >= kShortestGap) {
            result_.gaps.push_back({*lastLine_, *event.time - *lastLine_, event.boot.value_or(0)});
            if (result_.gaps.size() > kMostGaps) {
                result_.gaps.erase(
                    std::min_element(result_.gaps.begin(), result_.gaps.end(),
                                     [](const auto& a, const auto& b) { return a.length < b.length; }));
            }
        }
        lastLine_ = event.time;
        lastProcess_ = process;
    }

    void TakeError(const TimelineEvent& event) {
        if (event.level != "ERROR" && event.level != "FATAL") {
            return;
        }
        errors_.try_emplace(event.process, KeptEvent(event));
        errorsOfBoot_.try_emplace(event.boot, KeptEvent(event));
    }

    void TakeCrash(const TimelineEvent& crash) {
        const auto known = std::find_if(crashes_.begin(), crashes_.end(),
                                        [&](const Crash& each) { return each.files.front() == crash.file; });
        auto& error = result_.firstErrors.at(static_cast<std::size_t>(known - crashes_.begin()));
        if (crash.process) {
            error = ErrorIn(errors_, crash.process, crash);
        } else if (crash.boot || hasOneBoot_) {
            error = ErrorIn(errorsOfBoot_, BootOf(crash), crash);
        }
        errors_.clear();
        errorsOfBoot_.clear();
    }

    /// Where nothing tells a crash's boot, only the one boot that there is.
    std::optional<std::size_t> BootOf(const TimelineEvent& crash) const {
        return !crash.boot && errorsOfBoot_.size() == 1 ? errorsOfBoot_.begin()->first : crash.boot;
    }

    using Errors = std::map<std::optional<std::size_t>, KeptEvent>;

    static std::optional<KeptEvent> ErrorIn(const Errors& errors, std::optional<std::size_t> number,
                                            const TimelineEvent& crash) {
        const auto found = errors.find(number);
        const bool before = found != errors.end() && crash.time && found->second.Time() <= *crash.time;
        return before ? std::optional(found->second) : std::nullopt;
    }

    const std::vector<Crash>& crashes_;
    bool hasOneBoot_;
    Statistics result_;
    std::optional<std::int64_t> lastLine_;
    std::optional<std::size_t> lastProcess_;
    Errors errors_;       ///< the first of each process
    Errors errorsOfBoot_; ///< and of each boot
};

} // namespace

void EventCounts::Take(const TimelineEvent& event) {
    ++files[event.file];
    if (event.time) {
        first = std::min(first.value_or(*event.time), *event.time);
        last = std::max(last.value_or(*event.time), *event.time);
    }
    if (event.continued) {
        return;
    }
    key_.first = event.kind;
    key_.second.assign(event.name);
    Count& count = names[key_];
    ++count.all;
    level_.assign(event.level);
    if (!level_.empty()) {
        ++count.levels[level_];
    }
}

std::optional<std::int64_t> Statistics::Length() const {
    return first && last ? std::optional(std::max(*last - *first, kSecond)) : std::nullopt;
}

Statistics StatisticsOf(const Story& story) {
    Collector collector(story);
    Selection everything;
    MergedStory(story, everything, [](const TimelineEvent& /*event*/) {
        return true;
    }).ForEach([&](const TimelineEvent& event) { collector.Take(event); });
    return collector.Result();
}

} // namespace NimaPost
