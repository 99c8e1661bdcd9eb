#include "tools/story/Statistics.h"

#include "catalogue/Marks.h"
#include "tools/base/CounterClock.h"
#include "tools/story/MergedStory.h"
#include "tools/story/TimeBound.h"

#include <algorithm>

namespace NimaPost {

namespace {

constexpr std::size_t kMostGaps = 5;
/// Shorter ones are the pace of a device at rest.
constexpr std::int64_t kShortestGap = 2 * kSecond;

/// Finds the longest silences among lines in the order of time.
class Silences {
  public:
    explicit Silences(const Processes& processes) : processes_(processes) {}

    void Take(const TimelineEvent& event) {
        const std::int64_t later = event.certainty.ProvenLater();
        const std::int64_t earlier = event.certainty.ProvenEarlier();
        // Whatever bounds the lines after it, a calibration line has its own date.
        const bool isDate = event.level == Nima::Catalogue::kCalibrationLevel && !event.certainty.assumed;
        const bool isKnown = isDate || (later == 0 && earlier == 0);
        if (!GoesOn(event) || (!isKnown && (later <= 0 || earlier < 0))) {
            known_.reset();
        }
        if (isKnown && known_) {
            Close(event);
        }
        known_ = isKnown ? event.time : known_;
        unseen_ = isKnown ? 0 : std::max(unseen_, later);
        process_ = event.process;
        clock_ = event.clock;
        isOverwritten_ = event.mark == kOverwritten;
    }

    std::vector<Statistics::Gap> Result() {
        std::stable_sort(gaps_.begin(), gaps_.end(),
                         [](const auto& a, const auto& b) { return a.length > b.length; });
        return std::move(gaps_);
    }

  private:
    /// What lies between two processes is the device's rest, and between two settings of the clock, or an
    /// older round of a log and its newest lines, are no times that can be compared.
    bool GoesOn(const TimelineEvent& event) const {
        return event.process == process_ && event.clock == clock_ &&
               (event.mark == kOverwritten) == isOverwritten_;
    }

    void Close(const TimelineEvent& event) {
        // Of a process with two logs, lines of one may stand in a silence of the other.
        const bool hasTwoLogs = event.process && processes_.All()[*event.process - 1].probablyOne;
        const std::int64_t length = unseen_ == 0 ? *event.time - *known_ : hasTwoLogs ? 0 : unseen_ * kSecond;
        if (length < kShortestGap) {
            return;
        }
        gaps_.push_back({*known_, *event.time, length, event.boot.value_or(0)});
        if (gaps_.size() > kMostGaps) {
            gaps_.erase(std::min_element(gaps_.begin(), gaps_.end(),
                                         [](const auto& a, const auto& b) { return a.length < b.length; }));
        }
    }

    const Processes& processes_;
    std::vector<Statistics::Gap> gaps_;
    std::optional<std::int64_t> known_; ///< the latest time of which no second is open
    std::int64_t unseen_ = 0;           ///< seconds since then, of which no line shows where they passed
    std::optional<std::size_t> process_;
    std::optional<std::size_t> clock_;
    bool isOverwritten_ = false;
};

class Collector {
  public:
    explicit Collector(const Story& story)
        : crashes_(story.Crashes()),
          hasOneBoot_(BeginningsOf(story.Time().AllProcesses()).size() < 2),
          processes_(story.Time().AllProcesses()),
          silences_(processes_) {
        result_.firstErrors.resize(crashes_.size());
        result_.ends.resize(processes_.All().size());
    }

    void Take(const TimelineEvent& event) {
        if (event.level == kCrashLevel && event.kind == EventKind::kRecord) {
            TakeCrash(event);
            return;
        }
        result_.Take(event);
        if (event.process && event.time) {
            TakeEnds(event, processes_[*event.process], result_.ends[*event.process - 1]);
        }
        if (event.kind == EventKind::kText && event.time && !event.continued) {
            silences_.Take(event);
            TakeError(event);
        }
    }

    Statistics Result() {
        result_.gaps = silences_.Result();
        return std::move(result_);
    }

  private:
    /// Where nothing proves which lines are a process's, none proves when it began and ended.
    static void TakeEnds(const TimelineEvent& event, const ProcessFacts& facts, Statistics::Ends& ends) {
        const Statistics::End end{facts.assumed ? Certainty::Assumed() : event.certainty,
                                  event.mark == kOverwritten};
        ends.first = event.time == facts.first ? end : ends.first;
        ends.last = event.time == facts.last ? end : ends.last;
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
    const Processes& processes_;
    Statistics result_;
    Silences silences_;
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
    if (event.continued || event.IsRest()) {
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
