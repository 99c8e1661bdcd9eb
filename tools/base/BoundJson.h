#pragma once

#include "tools/base/Certainty.h"
#include "tools/base/Json.h"

namespace NimaPost {

/// Number of seconds, or "unbounded".
inline Json BoundJson(std::int64_t seconds) {
    return seconds == Certainty::kUnbounded ? Json("unbounded") : Json(seconds);
}

/// For programs.
constexpr const char* CodeOf(Certainty::Premise premise) {
    return premise == Certainty::Premise::kRoundsAsFound ? "rounds-as-found" : "clock-not-set";
}

/// What is proven, and what holds besides if the premise does.
inline void AddBounds(Json& json, const Certainty& certainty) {
    json["later_by_seconds"] = BoundJson(certainty.ProvenLater());
    json["earlier_by_seconds"] = BoundJson(certainty.ProvenEarlier());
    json["date_cut_ns"] = certainty.originLater;
    if (const auto later = certainty.LikelyLater()) {
        json["likely_later_by_seconds"] = *later;
        json["assuming"] = CodeOf(certainty.premise);
    }
    if (const auto earlier = certainty.LikelyEarlier()) {
        json["likely_earlier_by_seconds"] = *earlier;
        json["earlier_assuming"] = CodeOf(certainty.premise);
    }
}

} // namespace NimaPost
