#include "tools/log/Boots.h"

#include "tools/base/CounterClock.h"

#include <algorithm>
#include <iterator>

namespace NimaPost {

namespace {

/// Dates are compared with those of this many boots at most, so that time stays bounded.
constexpr std::size_t kMostCompared = 256;

struct Comparison {
    BootEvidence evidence = BootEvidence::kUnknown;
    std::int64_t misfit = 0;
};

/// `last` is the last dated part of the process before.
Comparison CompareBoots(const LogProcess& before, const LogPart& last, const LogRun& run,
                        const LogProcess& process) {
    Comparison comparison;
    if (process.mostFirstSecond < before.leastLastSecond) {
        comparison.evidence = BootEvidence::kUptime;
    } else if (process.date && run.wall) {
        const std::int64_t elapsed =
            last.start + last.length + StepForward(last.lastCounter, process.counter);
        comparison.misfit = run.wall->Compare(*process.date, elapsed).misfit;
        comparison.evidence = process.date->second * kSecond + kSecond < before.last ? BootEvidence::kDate
                              : comparison.misfit <= kFitsClosely ? BootEvidence::kClocksFit
                              : comparison.misfit > kDateTakes    ? BootEvidence::kClocks
                                                                  : BootEvidence::kUnknown;
    }
    return comparison;
}

void Include(LogProcess& process, const LogPart& part, const LogRun& run) {
    const std::int64_t first = part.start + OriginOf(run);
    const bool starts = process.threads.empty();
    process.collected = process.collected || run.collected;
    std::set_difference(part.threads.begin(), part.threads.end(), part.others.begin(), part.others.end(),
                        std::inserter(process.threads, process.threads.end()));
    // Across a place where order breaks the clock counts seconds that did not pass.
    if (part.stamped > 0 && !part.hidesSeam && part.clockBreaks == 0) {
        process.mostFirstSecond = std::min(process.mostFirstSecond, part.mostFirstSecond);
        process.leastLastSecond = std::max(process.leastLastSecond, part.leastLastSecond);
    }
    process.first = starts ? first : std::min(process.first, first);
    process.last = starts ? first + part.length : std::max(process.last, first + part.length);
    process.hasWall = run.wall.has_value();
    if (part.date && !process.date) {
        process.date = part.date;
        process.counter = part.firstCounter;
        process.run = part.run;
        process.start = part.start;
    }
}

/// A process that writes on while another has the log open shows by its threads beside those of the other.
void FindOthers(LogPart& part, const LogProcess& before) {
    part.others.clear();
    std::copy_if(part.threads.begin(), part.threads.end(), std::back_inserter(part.others),
                 [&](std::uint32_t thread) { return before.threads.contains(thread); });
    if (part.others.size() == part.threads.size() || !part.calibration ||
        before.threads.contains(part.calibration->thread)) {
        part.others.clear(); // A process like the one before, with the same identifiers.
    }
}

bool RanAtOneTime(const LogProcess& a, const LogProcess& b) {
    return a.hasWall && b.hasWall && a.first <= b.last && b.first <= a.last &&
           a.mostFirstSecond + (b.last - a.first) / kSecond >= b.leastLastSecond;
}

/// Puts the processes of all logs together, boot by boot.
class BootNumbering {
  public:
    explicit BootNumbering(std::vector<LogProcess>& processes) : processes_(processes) {
        for (const LogProcess& process : processes) {
            logs_ = std::max(logs_, process.log + 1);
        }
        lastOfLog_.resize(logs_);
    }

    void Number() {
        std::vector<std::size_t> order(processes_.size());
        for (std::size_t i = 0; i < order.size(); ++i) {
            order[i] = i;
        }
        // Within a log the order stands; a clock that was set back moves nothing.
        std::vector<std::int64_t> key(processes_.size());
        for (std::size_t i = 0; i < key.size(); ++i) {
            const bool first = i == 0 || processes_[i - 1].log != processes_[i].log;
            key[i] = first ? processes_[i].first : std::max(key[i - 1], processes_[i].first);
        }
        std::stable_sort(order.begin(), order.end(),
                         [&](std::size_t a, std::size_t b) { return key[a] < key[b]; });
        for (const std::size_t i : order) {
            LogProcess& process = processes_[i];
            if (process.hasWall) {
                process.boot = BootOf(process);
                boots_.resize(std::max(boots_.size(), process.boot));
                boots_[process.boot - 1].push_back(i);
                lastOfLog_[process.log] = process.boot;
                collectedBoot_ = process.collected ? process.boot : collectedBoot_;
            }
        }
    }

  private:
    std::size_t BootOf(const LogProcess& process) const {
        const std::size_t last = lastOfLog_[process.log];
        if (process.collected && collectedBoot_ >= std::max<std::size_t>(last, 1)) {
            return collectedBoot_;
        }
        if (last > 0 && !process.StartsABoot()) {
            return last;
        }
        const std::size_t least = last + 1;
        const std::size_t from = std::max(least, boots_.size() - std::min(boots_.size(), kMostCompared) + 1);
        for (const auto& sameBoot : {FitOneClock, RanAtOneTime}) {
            for (std::size_t boot = from; boot <= boots_.size(); ++boot) {
                const auto& members = boots_[boot - 1];
                if (std::any_of(members.begin(), members.end(), [&](std::size_t member) {
                        return processes_[member].log != process.log && sameBoot(processes_[member], process);
                    })) {
                    return boot;
                }
            }
        }
        return boots_.size() + 1;
    }

    std::vector<LogProcess>& processes_;
    std::size_t logs_ = 0;
    std::size_t collectedBoot_ = 0;               ///< 0 before its first process
    std::vector<std::vector<std::size_t>> boots_; ///< the processes of each
    std::vector<std::size_t> lastOfLog_;          ///< the boot of its last process so far; 0 before the first
};

} // namespace

void FindProcesses(std::size_t log, std::vector<LogPart>& parts, const std::vector<LogRun>& runs,
                   std::vector<LogProcess>& processes) {
    const std::size_t firstOfLog = processes.size();
    const LogPart* dated = nullptr;       ///< the last one of the process before
    const LogPart* datedOfThis = nullptr; ///< of this process
    for (std::size_t i = 0; i < parts.size(); ++i) {
        LogPart& part = parts[i];
        if (i == 0 || part.link == PartLink::kOpening) {
            processes.emplace_back().log = log;
            dated = datedOfThis != nullptr ? datedOfThis : dated;
            datedOfThis = nullptr;
        }
        part.process = processes.size() - 1;
        LogProcess& process = processes.back();
        if (processes.size() - 1 > firstOfLog) {
            FindOthers(part, processes[processes.size() - 2]);
            part.othersProcess = part.others.empty() ? std::nullopt : std::optional(processes.size() - 2);
        }
        Include(process, part, runs[part.run]);
        datedOfThis = part.date ? &part : datedOfThis;
        const bool last = i + 1 == parts.size() || parts[i + 1].link == PartLink::kOpening;
        if (last && processes.size() - 1 > firstOfLog) {
            LogProcess& before = processes[processes.size() - 2];
            before.nextOpening = before.hasWall ? std::optional(process.first) : std::nullopt;
            const Comparison comparison =
                dated != nullptr ? CompareBoots(before, *dated, runs[dated->run], process) : Comparison();
            process.apart = process.collected && !before.collected;
            process.evidence = comparison.evidence;
            process.misfit = comparison.misfit;
        }
    }
}

void NumberBoots(std::vector<LogProcess>& processes) {
    BootNumbering(processes).Number();
}

} // namespace NimaPost
