#pragma once

#include "tools/formats/TextLog.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace NimaPost {

/// Where the stretches of a rewound file meet.
struct RewoundFile {
    std::uint64_t newestEnd = 0; ///< the newest lines stand before this offset
    std::uint64_t tailEnd = 0;   ///< from here on lines of a still older round, which was longer
};

/// Reads a log once and finds out whether its writer went on at its start, doc/clock.md. Empty where nothing
/// says so.
std::optional<RewoundFile> FindRewound(const InputFile& file);

/// Divides a range of a file at its calibration lines and runs the clock over each part.
std::vector<LogPart> DivideAtCalibrations(const InputFile& file, std::uint64_t begin, std::uint64_t end,
                                          std::uint64_t& lines);

} // namespace NimaPost
