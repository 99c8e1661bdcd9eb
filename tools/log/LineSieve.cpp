#include "tools/log/LineSieve.h"

#include "catalogue/Marks.h"

#include <algorithm>
#include <string>

namespace NimaPost {

namespace {

constexpr std::size_t kMostPatterns = 16;

} // namespace

LineSieve::LineSieve(const LogFilter& filter) : filter_(filter) {
    if (const TextFilter* const texts = filter.Texts()) {
        patterns_ = texts->Needed();
        patterns_.resize(std::min(patterns_.size(), kMostPatterns));
    }
    const auto add = [&](const std::vector<std::string>& names, const std::string& before,
                         const std::string& after) {
        OneOf any;
        for (const std::string& name : names) {
            std::string mark = before;
            mark.append(name).append(after);
            any.emplace_back(mark);
        }
        if (!any.empty()) {
            marks_.push_back(std::move(any));
        }
    };
    using namespace Nima::Catalogue;
    for (const std::string& level : filter.Levels()) {
        levels_.push_back(kLevelBegin + level + kLevelEnd);
    }
    add(levels_, "", "");
    add(filter.Tracers(), kLevelEnd, kTracerEnd);
    all_ = (Needs{1} << (patterns_.size() + marks_.size())) - 1;
}

LineSieve::Needs LineSieve::In(std::string_view lines) const {
    Needs found = 0;
    Needs bit = 1;
    for (const Pattern* const pattern : patterns_) {
        found |= pattern->MayBeIn(lines) ? bit : 0;
        bit <<= 1;
    }
    for (const OneOf& marks : marks_) {
        const bool any =
            std::any_of(marks.begin(), marks.end(), [&](const ByteSearch& mark) { return mark.IsIn(lines); });
        found |= any ? bit : 0;
        bit <<= 1;
    }
    return found;
}

} // namespace NimaPost
