#pragma once

#include "tools/base/Output.h"
#include "tools/compare/Profile.h"

#include <cstdint>
#include <string>
#include <vector>

namespace NimaPost {

/// Something that one device said and the other did not.
struct OnlyHere {
    Saying saying;
    std::uint64_t count = 0;
};

/// Something that one device said far more often than the other.
struct OtherRate {
    Saying saying;
    double first = 0; ///< per second
    double second = 0;

    /// How many times as often the second said it.
    double Times() const { return second / first; }
};

/// What differs between two profiles, the largest difference of each kind first.
struct Difference {
    /// A name that is missing altogether stands for its messages.
    std::vector<OnlyHere> onlyFirst;
    std::vector<OnlyHere> onlySecond;
    /// Of names and messages that both have, where chance alone would not do.
    std::vector<OtherRate> rates;
};

Difference Compare(const Profile& first, const Profile& second);

/// Members as doc/nima-post.md lists them.
Json DifferenceJson(const Difference& difference);

/// A paragraph for each kind, with at most `most` lines; `first` and `second` are what they are called.
std::vector<std::string> DifferenceInWords(const Difference& difference, const std::string& first,
                                           const std::string& second, std::size_t most);

} // namespace NimaPost
