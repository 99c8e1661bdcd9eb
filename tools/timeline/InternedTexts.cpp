#include "tools/timeline/InternedTexts.h"

namespace NimaPost {

InternedTexts::Entry InternedTexts::NumberOf(std::string_view text) {
    constexpr std::size_t kMostInterned = 1 << 14;
    constexpr std::size_t kLongestText = 256;
    const auto known = numbers_.find(text);
    if (known != numbers_.end()) {
        return {known->second, false};
    }
    if (numbers_.size() == kMostInterned || text.size() > kLongestText) {
        return {};
    }
    const std::uint64_t number = numbers_.size() + 1;
    numbers_.emplace(text, number);
    return {number, true};
}

} // namespace NimaPost
