#include "tools/story/ReportMatch.h"

#include "tools/base/CounterClock.h"

#include <set>

namespace NimaPost {

namespace {

/// The host may do something between the two, and the stack is walked for seconds at most.
constexpr std::int64_t kMostBetween = 60 * kSecond;
/// Two file systems may cut their times differently.
constexpr std::int64_t kMostCut = 2 * kSecond;
/// Deaths that are closer together may be of processes that ran at the same time.
constexpr std::int64_t kApart = kSecond;

/// The one that comes first by far; empty if there is none, or if another may be it as well.
std::optional<std::size_t> Nearest(const LogGaps& gaps) {
    std::optional<std::size_t> best;
    for (std::size_t i = 0; i < gaps.size(); ++i) {
        best = gaps[i] && (!best || *gaps[i] < *gaps[*best]) ? i : best;
    }
    for (std::size_t i = 0; i < gaps.size(); ++i) {
        if (gaps[i] && i != *best && (*gaps[*best] < 0 || *gaps[i] - *gaps[*best] <= kApart)) {
            return std::nullopt;
        }
    }
    return best;
}

/// The nearest report of each log.
std::vector<std::optional<std::size_t>> NearestOfLogs(const std::vector<LogGaps>& reports) {
    std::vector<std::optional<std::size_t>> nearest;
    const std::size_t logs = reports.empty() ? 0 : reports.front().size();
    for (std::size_t log = 0; log < logs; ++log) {
        LogGaps gaps;
        for (const LogGaps& report : reports) {
            gaps.push_back(report[log]);
        }
        nearest.push_back(Nearest(gaps));
    }
    return nearest;
}

} // namespace

std::optional<std::int64_t> GapBetween(std::int64_t log, std::int64_t report) {
    const std::int64_t gap = report - log;
    return gap >= -kMostCut && gap <= kMostBetween ? std::optional(gap) : std::nullopt;
}

std::vector<ReportMatch> MatchReports(const std::vector<LogGaps>& reports) {
    std::vector<ReportMatch> matches(reports.size());
    const std::vector<std::optional<std::size_t>> ofLog = NearestOfLogs(reports);
    std::set<std::size_t> taken;
    for (std::size_t i = 0; i < reports.size(); ++i) {
        const auto log = Nearest(reports[i]);
        if (log && ofLog[*log] == i) {
            matches[i].log = log;
            taken.insert(*log);
        }
    }
    for (std::size_t i = 0; i < reports.size(); ++i) {
        for (std::size_t log = 0; log < reports[i].size(); ++log) {
            if (!matches[i].log && reports[i][log] && !taken.contains(log)) {
                matches[i].perhaps.push_back(log);
            }
        }
    }
    return matches;
}

} // namespace NimaPost
