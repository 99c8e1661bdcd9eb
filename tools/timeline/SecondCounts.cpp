#include "tools/timeline/SecondCounts.h"

#include <algorithm>

namespace NimaPost {

void SecondCounts::Add(std::int64_t second) {
    if (counts_.empty() || counts_.back().second != second) {
        counts_.push_back(Count{second, 0});
    }
    ++counts_.back().count;
}

void SecondCounts::Settle() {
    std::sort(counts_.begin(), counts_.end(),
              [](const Count& a, const Count& b) { return a.second < b.second; });
    std::size_t kept = 0;
    for (std::size_t i = 1; i < counts_.size(); ++i) {
        if (counts_[i].second == counts_[kept].second) {
            counts_[kept].count += counts_[i].count;
        } else {
            counts_[++kept] = counts_[i];
        }
    }
    counts_.resize(counts_.empty() ? 0 : kept + 1);
}

} // namespace NimaPost
