#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace NimaPost {

/// For each of several crash logs, how long after it a report was written, in nanoseconds: 0 where no times
/// tell, empty where both cannot be of one death.
using LogGaps = std::vector<std::optional<std::int64_t>>;

/// Of two file times, with a code that the log and the report have in common.
std::optional<std::int64_t> GapBetween(std::int64_t log, std::int64_t report);

struct ReportMatch {
    std::optional<std::size_t> log;
    std::vector<std::size_t> perhaps; ///< where there is no such log, those of which one may be it
};

/// A process writes its crash log just before its report: both belong together if each is nearest to the
/// other.
std::vector<ReportMatch> MatchReports(const std::vector<LogGaps>& reports);

} // namespace NimaPost
