#pragma once

#include "tools/base/Certainty.h"
#include "tools/base/InputFile.h"
#include "tools/base/WallClock.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace NimaPost {

/// A stretch of a log's file that was written in one go, from one calibration line to the next.
struct LogPart {
    std::size_t file = 0; ///< in the log set's files
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    /// Older than the lines in front of it: the rest of a file whose writer went on at its start.
    bool overwritten = false;
    std::optional<RawDate> date; ///< of the calibration line that it begins with
    std::int64_t firstCounter = 0;
    std::uint64_t stamped = 0; ///< lines with a header
    // From the part's own clock: how far it got.
    std::int64_t length = 0;
    std::int64_t lastCounter = 0;
    std::uint64_t clockBreaks = 0;
    // Where the part stands in the whole.
    std::size_t run = 0;    ///< parts of one run of the device's clocks
    std::int64_t start = 0; ///< of its first stamped line, nanoseconds on the run's axis
    Certainty certainty;
};

/// What one reading of a log's file tells.
struct LogSurvey {
    std::uint64_t lines = 0;
    /// In the order of time.
    std::vector<LogPart> parts;
    /// Where the newest lines end and those of an earlier round follow, if the writer went on at the file's
    /// start.
    std::optional<std::uint64_t> newestEnd;
};

/// Divides a log at its calibration lines, runs the clock over each part, and finds out whether its writer
/// went on at the file's start (doc/clock.md).
LogSurvey SurveyLog(const InputFile& file);

} // namespace NimaPost
