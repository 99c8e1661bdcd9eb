#pragma once

#include "tools/base/Certainty.h"
#include "tools/base/Json.h"

namespace NimaPost {

/// Number of seconds, or "unbounded".
inline Json BoundJson(std::int64_t seconds) {
    return seconds == Certainty::kUnbounded ? Json("unbounded") : Json(seconds);
}

} // namespace NimaPost
