#include "tools/story/Selection.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/base/TimeText.h"

#include <algorithm>
#include <utility>

namespace NimaPost {

namespace {

constexpr std::int64_t kUsuallyWithin = 10 * kSecond;

bool ParseBound(const std::string& text, std::optional<TimeBound>& bound, std::string& problem) {
    bound = text.empty() ? std::nullopt : TimeBound::Parse(text, problem);
    return bound || text.empty();
}

} // namespace

bool Selection::Prepare(const SelectionOptions& options, std::string& problem) {
    bootAsked_ = options.boot;
    process_ = options.process;
    last_ = options.last;
    for (const std::string& expression : options.wanted) {
        auto pattern = Pattern::Compile(expression, options.ignoreCase, problem);
        if (!pattern) {
            return false;
        }
        texts_.Want(std::move(*pattern));
    }
    for (const std::string& expression : options.refused) {
        auto pattern = Pattern::Compile(expression, options.ignoreCase, problem);
        if (!pattern) {
            return false;
        }
        texts_.Refuse(std::move(*pattern));
    }
    const auto within = options.within.empty() ? kUsuallyWithin : ParseDuration(options.within);
    if (!within) {
        problem = "no length of time \"" + options.within + "\": 10s, 1m30s, 500ms";
        return false;
    }
    within_ = *within;
    if (!options.within.empty() && options.around.empty()) {
        problem = "--within needs --around";
        return false;
    }
    if (!options.around.empty() && !(options.since.empty() && options.until.empty())) {
        problem = "--around takes the place of --since and --until";
        return false;
    }
    return ParseBound(options.since, sinceBound_, problem) &&
           ParseBound(options.until, untilBound_, problem) && ParseBound(options.around, around_, problem);
}

bool Selection::NeedsEnds() const {
    const auto needs = [](const std::optional<TimeBound>& bound) { return bound && bound->NeedsEnds(); };
    return needs(sinceBound_) || needs(untilBound_) || needs(around_);
}

bool Selection::Settle(const Processes& processes, const Landmarks& landmarks, std::string& problem) {
    return SettleBoot(processes, problem) && SettleRange(landmarks, problem);
}

bool Selection::SettleBoot(const Processes& known, std::string& problem) {
    const auto& processes = known.All();
    if (process_ && (*process_ == 0 || *process_ > processes.size())) {
        problem = "no process " + std::to_string(*process_) + "; there are " +
                  (processes.empty() ? "none" : std::to_string(processes.size()));
        return false;
    }
    if (!bootAsked_) {
        return true;
    }
    std::vector<std::size_t> boots;
    for (const ProcessFacts& facts : processes) {
        if (facts.boot) {
            boots.push_back(*facts.boot);
        }
    }
    std::sort(boots.begin(), boots.end());
    boots.erase(std::unique(boots.begin(), boots.end()), boots.end());
    const auto before = static_cast<std::uint64_t>(-std::min<std::int64_t>(*bootAsked_, 0));
    if (*bootAsked_ <= 0 && before < boots.size()) {
        boot_ = boots[boots.size() - 1 - before];
    } else {
        boot_ = static_cast<std::size_t>(*bootAsked_);
    }
    if (!std::binary_search(boots.begin(), boots.end(), *boot_)) {
        problem = "no boot " + std::to_string(*bootAsked_) + " in the folder";
        return false;
    }
    return true;
}

bool Selection::SettleRange(const Landmarks& landmarks, std::string& problem) {
    const auto find = [&](const TimeBound& bound, std::optional<std::int64_t> after, std::int64_t& time) {
        const auto found = bound.Find(landmarks, after, problem);
        time = found.value_or(time);
        return found.has_value();
    };
    limited_ = sinceBound_ || untilBound_ || around_;
    if (around_) {
        std::int64_t middle = 0;
        if (!find(*around_, std::nullopt, middle)) {
            return false;
        }
        since_ = middle - within_;
        until_ = middle + within_ + 1;
        return true;
    }
    const auto after = [&] { return sinceBound_ ? std::optional(since_) : std::nullopt; };
    return (!sinceBound_ || find(*sinceBound_, std::nullopt, since_)) &&
           (!untilBound_ || find(*untilBound_, after(), until_));
}

bool Selection::CouldBeIn(const std::optional<std::int64_t>& time, const Certainty& certainty) const {
    if (!time) {
        return true;
    }
    if (*time < since_) {
        return certainty.later == Certainty::kUnbounded ||
               *time + certainty.later * kSecond + certainty.originLater >= since_;
    }
    return certainty.earlier == Certainty::kUnbounded || *time - certainty.earlier * kSecond < until_;
}

std::vector<Finding> Selection::Remarks() const {
    std::vector<Finding> remarks;
    if (limited_ && since_ >= until_) {
        remarks.push_back({"range-empty", "The range ends before it begins, by the times that are shown."});
    }
    if (nearMisses_ > 0) {
        remarks.push_back({"range-uncertain", std::to_string(nearMisses_) +
                                                  " more could belong to the range: by the bounds of their "
                                                  "times they may have been in it."});
    }
    if (texts_.GivenUp() > 0) {
        remarks.push_back({"pattern-limit", "A regular expression was too costly for " +
                                                Counted(texts_.GivenUp(), "text") +
                                                ", which it counts as not found in."});
    }
    return remarks;
}

} // namespace NimaPost
