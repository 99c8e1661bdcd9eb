#pragma once

#include <cstdint>

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

    bool Exact() const { return later == 0 && earlier == 0 && originLater == 0 && !assumed; }

    static constexpr Certainty Assumed() { return {kUnbounded, kUnbounded, true}; }
};

} // namespace NimaPost
