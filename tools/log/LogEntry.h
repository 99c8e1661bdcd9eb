#pragma once

#include "tools/base/Certainty.h"
#include "tools/log/LogLine.h"
#include "tools/log/LogParts.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

namespace NimaPost {

/// By how much a time may be later if an assumption holds that nothing in the log proves.
struct LikelyBound {
    std::int64_t later = 0; ///< whole seconds
    const char* assuming = "";
};

/// A line with everything that was recovered about it. The views hold until the next line is read.
struct LogEntry {
    LogLine line;
    std::string_view text; ///< the whole line without its end
    const LogPart* part = nullptr;
    std::uint64_t offset = 0;
    /// Nanoseconds since 1970 if `hasWall`, else since the first line of the run. Of a line without a time
    /// that of the part's first stamped one, in front of which it stands.
    std::int64_t time = 0;
    bool hasTime = false; ///< false until the part's first stamped line
    bool hasWall = false;
    Certainty certainty;
    std::optional<std::size_t> boot;    ///< from 1
    std::optional<std::size_t> process; ///< from 1
    /// Has no header, and belongs to the line before. False at a part's start, where that is lost.
    bool continued = false;
};

} // namespace NimaPost
