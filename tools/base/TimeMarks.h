#pragma once

#include "tools/base/Certainty.h"

#include <array>
#include <cstddef>
#include <string_view>

namespace NimaPost {

/// A sign that stands with a time wherever one is shown, and what it means.
struct TimeMark {
    char sign;
    std::string_view meaning;
};

/// How sure a time is, the surest first. Pages refer to them by number.
enum class Sureness : unsigned char { kExact, kOpen, kAssumed };

inline constexpr std::array<TimeMark, 3> kTimeMarks{
    TimeMark{'=', "exact"},
    TimeMark{'~', "perhaps later by whole seconds"},
    TimeMark{'?', "assumed: tied to something else in the folder"},
};
/// Stands after one of the others.
inline constexpr TimeMark kOverwrittenMark{
    '<', "of an overwritten round of its log; with ~ perhaps earlier by whole seconds"};

constexpr Sureness SurenessOf(const Certainty& certainty) {
    return certainty.assumed ? Sureness::kAssumed : certainty.Exact() ? Sureness::kExact : Sureness::kOpen;
}

constexpr const TimeMark& MarkOf(const Certainty& certainty) {
    return kTimeMarks[static_cast<std::size_t>(SurenessOf(certainty))];
}

} // namespace NimaPost
