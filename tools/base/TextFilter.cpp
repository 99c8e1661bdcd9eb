#include "tools/base/TextFilter.h"

#include <algorithm>
#include <numeric>

namespace NimaPost {

TextFilter::Fate TextFilter::Begin(std::string_view line) {
    Restart();
    return Continue(line);
}

void TextFilter::Restart() {
    for (Wanted& each : wanted_) {
        each.found = false;
    }
    fate_ = Fate::kMissing;
}

TextFilter::Fate TextFilter::Continue(std::string_view line) {
    if (fate_ == Fate::kShow || fate_ == Fate::kHide) {
        return fate_;
    }
    if (std::any_of(refused_.begin(), refused_.end(), [&](const Pattern& each) { return each.IsIn(line); })) {
        return fate_ = Fate::kHide;
    }
    bool all = true;
    for (Wanted& each : wanted_) {
        each.found = each.found || each.pattern.IsIn(line);
        all = all && each.found;
    }
    return fate_ = !all ? Fate::kMissing : refused_.empty() ? Fate::kShow : Fate::kUnlessBad;
}

std::vector<const Pattern*> TextFilter::Needed() const {
    const bool allRefusedArePlain =
        std::all_of(refused_.begin(), refused_.end(), [](const Pattern& each) { return each.IsPlain(); });
    const auto limited = std::count_if(wanted_.begin(), wanted_.end(),
                                       [](const Wanted& each) { return !each.pattern.IsPlain(); });
    std::vector<const Pattern*> needed;
    for (const Wanted& each : wanted_) {
        if (allRefusedArePlain && (limited == 0 || (limited == 1 && !each.pattern.IsPlain()))) {
            needed.push_back(&each.pattern);
        }
    }
    return needed;
}

std::uint64_t TextFilter::GivenUp() const {
    const std::uint64_t wanted =
        std::accumulate(wanted_.begin(), wanted_.end(), std::uint64_t{0},
                        [](std::uint64_t sum, const Wanted& each) { return sum + each.pattern.GivenUp(); });
    return std::accumulate(refused_.begin(), refused_.end(), wanted,
                           [](std::uint64_t sum, const Pattern& each) { return sum + each.GivenUp(); });
}

} // namespace NimaPost
