#pragma once

#include "tools/base/InputFile.h"
#include "tools/log/LogParts.h"
#include "tools/log/Quotes.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace NimaPost {

/// What one reading of a log's file tells.
struct LogSurvey {
    std::uint64_t lines = 0;
    std::uint64_t torn = 0; ///< lines that end where a calibration line begins
    std::vector<Quote> quotes;
    /// In the order of time.
    std::vector<LogPart> parts;
    /// Where the newest lines end and those of an earlier round follow, if the writer went on at the file's
    /// start.
    std::optional<std::uint64_t> newestEnd;
    bool hidesSeam = false;
};

/// Divides a log at its calibration lines, runs the clock over each part, and finds out whether its writer
/// went on at the file's start (doc/clock.md).
LogSurvey SurveyLog(const InputFile& file);

} // namespace NimaPost
