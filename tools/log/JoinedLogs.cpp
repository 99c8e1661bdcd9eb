#include "tools/log/JoinedLogs.h"

#include "tools/base/CounterClock.h"

#include <algorithm>
#include <numeric>

namespace NimaPost {

namespace {

/// A process is compared with so many that began before it, so that time stays bounded.
constexpr std::size_t kMostLogsCompared = 256;

bool ShareAThread(const LogProcess& a, const LogProcess& b) {
    return std::any_of(a.threads.begin(), a.threads.end(),
                       [&](std::uint32_t thread) { return b.threads.contains(thread); });
}

} // namespace

JoinedLogs::JoinedLogs(const std::vector<LogProcess>& processes, std::vector<LogRun>& runs)
    : first_(processes.size()), logs_(processes.size()) {
    std::iota(first_.begin(), first_.end(), std::size_t{0});
    std::vector<std::size_t> order = first_;
    std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) {
        return processes[a].Earliest() < processes[b].Earliest();
    });
    std::vector<Link> links;
    for (std::size_t i = 0; i < order.size(); ++i) {
        const LogProcess& process = processes[order[i]];
        logs_[order[i]] = {process.log};
        for (std::size_t j = i; j > 0 && i - j < kMostLogsCompared; --j) {
            if (const auto common = MayJoin(processes, order[j - 1], order[i])) {
                const std::size_t first = first_[order[j - 1]];
                const ProcessClock& a = *common->a;
                const ProcessClock& b = *common->b;
                const std::int64_t elapsed = a.start + StepForward(a.counter, b.counter);
                const auto fit = runs[a.run].wall->Compare(*b.date, elapsed);
                links.push_back({a.run, b.run, elapsed + fit.unseen * kCounterPeriod - b.start});
                first_[order[i]] = first;
                logs_[first].push_back(process.log);
                break;
            }
        }
    }
    // What a later log has narrowed holds for the earlier ones as well.
    for (int go = 0; go < 2; ++go) {
        for (const Link& link : links) {
            runs[link.run].wall->Unite(*runs[link.otherRun].wall, link.shift);
        }
    }
}

std::optional<CommonClock> JoinedLogs::MayJoin(const std::vector<LogProcess>& processes, std::size_t earlier,
                                               std::size_t later) const {
    const LogProcess& a = processes[earlier];
    const LogProcess& b = processes[later];
    const auto& logs = logs_[first_[earlier]];
    const bool may = std::find(logs.begin(), logs.end(), b.log) == logs.end() &&
                     (!a.nextOpening || b.First() < *a.nextOpening) && ShareAThread(a, b);
    return may ? FindCommonClock(a, b) : std::nullopt;
}

} // namespace NimaPost
