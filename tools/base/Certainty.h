#pragma once

#include <cstdint>
#include <optional>

namespace NimaPost {

/// How certain a time is: by how many whole seconds the true time may be after or before the one shown, and
/// what the time is based on.
struct Certainty {
    static constexpr std::int64_t kUnbounded = -1;

    std::int64_t later = kUnbounded;
    std::int64_t earlier = 0;
    /// Tied to another source by an assumption; the bounds hold only within this source.
    bool assumed = false;
    /// By how many nanoseconds, less than a second, all times that count from the same date may be later
    /// besides, since dates are cut.
    std::int64_t originLater = 0;
    /// What both bounds rest on and nothing proves. If it does not hold, nothing bounds the time.
    enum class Premise : unsigned char {
        kNothing,
        kClockNotSet,   ///< between this and the date from which the time counts
        kRoundsAsFound, ///< so, and the log's rounds are as they were found: by one writer, and none unseen
    };
    Premise premise = Premise::kNothing;

    constexpr std::int64_t ProvenLater() const { return premise == Premise::kNothing ? later : kUnbounded; }
    constexpr std::int64_t ProvenEarlier() const {
        return premise == Premise::kNothing ? earlier : kUnbounded;
    }

    /// What holds besides if the premise does; empty where that bounds nothing.
    constexpr std::optional<std::int64_t> LikelyLater() const {
        return later == ProvenLater() ? std::nullopt : std::optional(later);
    }
    constexpr std::optional<std::int64_t> LikelyEarlier() const {
        return earlier == ProvenEarlier() ? std::nullopt : std::optional(earlier);
    }

    constexpr bool Exact() const {
        return ProvenLater() == 0 && ProvenEarlier() == 0 && originLater == 0 && !assumed;
    }

    static constexpr Certainty Assumed() { return {kUnbounded, kUnbounded, true}; }
};

} // namespace NimaPost
