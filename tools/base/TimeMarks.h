#pragma once

#include "tools/base/Certainty.h"

#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace NimaPost {

/// A sign that stands with a time wherever one is shown, and what it means.
struct TimeMark {
    char sign;
    std::string_view code; ///< for programs
    std::string_view meaning;
};

/// How sure a time is, the surest first. Pages refer to them by number.
enum class Sureness : unsigned char { kExact, kCut, kOpen, kAssumed };

inline constexpr std::array<TimeMark, 4> kTimeMarks{
    TimeMark{'=', "exact", "exact"},
    TimeMark{'+', "cut", "perhaps later by less than a second, since its date is cut"},
    TimeMark{'~', "open", "perhaps later by whole seconds, or right only if the clock was not set"},
    TimeMark{'?', "assumed", "assumed: tied to something else in the folder"},
};
/// Stands after one of the others.
inline constexpr TimeMark kOverwrittenMark{
    '<', "overwritten", "of an overwritten round of its log; with ~ perhaps earlier by whole seconds"};

constexpr Sureness SurenessOf(const Certainty& certainty) {
    return certainty.assumed                                                ? Sureness::kAssumed
           : certainty.ProvenLater() != 0 || certainty.ProvenEarlier() != 0 ? Sureness::kOpen
           : certainty.originLater != 0                                     ? Sureness::kCut
                                                                            : Sureness::kExact;
}

constexpr const TimeMark& MarkOf(const Certainty& certainty) {
    return kTimeMarks[static_cast<std::size_t>(SurenessOf(certainty))];
}

/// All that stand with a time.
inline std::string SignsOf(const Certainty& certainty, bool overwritten) {
    std::string signs(1, MarkOf(certainty).sign);
    return overwritten ? signs += kOverwrittenMark.sign : signs;
}

/// "2026-11-24 15:09:26.046886123 =  exact"
inline std::string WithMark(std::string moment, const Certainty& certainty) {
    const TimeMark& mark = MarkOf(certainty);
    return (moment += ' ') + mark.sign + "  " + std::string(mark.meaning);
}

} // namespace NimaPost
