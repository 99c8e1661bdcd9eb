#include "tools/log/Boots.h"

#include "tools/base/CounterClock.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>

namespace NimaPost {

namespace {

/// Dates are compared with those of this many boots at most, so that time stays bounded.
constexpr std::size_t kMostBoots = 256;

struct Comparison {
    BootEvidence evidence = BootEvidence::kUnknown;
    std::int64_t misfit = 0;
    std::int64_t fall = 0;
};

/// `last` is the last dated part of the process before.
Comparison CompareBoots(const LogProcess& before, const LogPart& last, const LogRun& run,
                        const LogProcess& process) {
    Comparison comparison;
    if (process.mostFirstSecond < before.leastLastSecond) {
        comparison.evidence = BootEvidence::kUptime;
    } else if (before.IsDated() && process.clocks.front().date) {
        const ProcessClock& clock = process.clocks.front();
        const std::int64_t elapsed = last.start + last.length + StepForward(last.lastCounter, clock.counter);
        comparison.misfit = run.wall->Compare(*clock.date, elapsed).misfit;
        comparison.fall = std::max<std::int64_t>(0, before.Last() - (clock.date->second + 1) * kSecond);
        // One clock that explains an earlier date outweighs it: the log may have gone on at its start.
        comparison.evidence =
            comparison.misfit <= kFitsClosely
                ? (BeganWithTheDevice(*clock.date, clock.counter) ? BootEvidence::kNoClock
                                                                  : BootEvidence::kClocksFit)
            : comparison.misfit <= kDateTakes ? BootEvidence::kUnknown
            : comparison.fall > 0             ? BootEvidence::kDate
                                              : BootEvidence::kClocks;
    }
    return comparison;
}

/// Counters are as they stand there where one clock explains both. Where a torn digit may stand in front of
/// one, that they miss each other tells nothing.
void ConfirmCounters(Comparison& comparison, LogPart* last, LogPart* first) {
    if (last == nullptr || first == nullptr || !(last->doubtful || first->doubtful)) {
        return;
    }
    if (comparison.evidence == BootEvidence::kClocksFit || comparison.evidence == BootEvidence::kNoClock) {
        last->TakeAsItStands();
        first->TakeAsItStands();
    } else if (comparison.evidence == BootEvidence::kClocks || last->mayBeQuote || first->mayBeQuote) {
        comparison = Comparison();
    }
}

void Include(LogProcess& process, const LogPart& part, const LogRun& run) {
    const std::int64_t first = part.start + OriginOf(run);
    process.collected = process.collected || run.collected;
    process.mayHaveRestarted = process.mayHaveRestarted || part.mayBeRestart;
    process.linesMayBeOlder = process.linesMayBeOlder || part.mayBeOlder;
    process.hidesSeam = process.hidesSeam || part.hidesSeam;
    process.hasOlderRounds = process.hasOlderRounds || (part.overwritten && !part.calibration);
    process.mayBeQuote = process.mayBeQuote || part.mayBeQuote;
    process.sharesThreads = process.sharesThreads || !part.processIsKnown;
    std::set_difference(part.threads.begin(), part.threads.end(), part.others.begin(), part.others.end(),
                        std::inserter(process.threads, process.threads.end()));
    if (part.BoundsUptime()) {
        process.mostFirstSecond = std::min(process.mostFirstSecond, part.mostFirstSecond);
        process.leastLastSecond = std::max(process.leastLastSecond, part.leastLastSecond);
    }
    if (!part.processIsKnown && !process.clocks.empty()) {
        return; // Lines that may be another's tell nothing of when it ran.
    }
    if (process.clocks.empty() || process.clocks.back().run != part.run) {
        process.clocks.push_back({.run = part.run, .first = first, .last = first, .date = {}});
    }
    ProcessClock& clock = process.clocks.back();
    clock.first = std::min(clock.first, first);
    clock.last = std::max(clock.last, first + part.length);
    if (part.date && !clock.date) {
        clock.date = part.date;
        clock.counter = part.firstCounter;
        clock.start = part.start;
    }
}

/// Two threads whose stacks are this near are of one process, wherever the system puts each process.
constexpr std::int64_t kNearThread = 32LL << 20;

/// Whether the part has threads, its opener included, beside the others and near one of them.
bool OthersAreItsOwn(const LogPart& part) {
    const auto isNearOther = [&](std::uint32_t thread) {
        return !std::binary_search(part.others.begin(), part.others.end(), thread) &&
               std::any_of(part.others.begin(), part.others.end(), [&](std::uint32_t other) {
                   return std::abs(std::int64_t{thread} - std::int64_t{other}) < kNearThread;
               });
    };
    return std::any_of(part.threads.begin(), part.threads.end(), isNearOther);
}

/// A process that writes on while another has the log open shows by its threads beside those of the other.
void FindOthers(LogPart& part, const LogPart& opening, const LogProcess& before, LogProcess& process) {
    part.others.clear();
    std::copy_if(part.threads.begin(), part.threads.end(), std::back_inserter(part.others),
                 [&](std::uint32_t thread) { return before.threads.contains(thread); });
    const auto isOther = [&](const LogPart& each) {
        return each.calibration && before.threads.contains(each.calibration->thread);
    };
    if (part.others.size() == part.threads.size() || !part.calibration || isOther(part) || isOther(opening)) {
        part.others.clear(); // A process like the one before, with the same identifiers.
    } else if (OthersAreItsOwn(part)) {
        part.others.clear(); // So it is, but of the one before only some of the threads are left.
        process.hasThreadsOfBefore = true;
    }
}

/// By their dates, and no clock contradicts it. How long a process ran, only one clock tells.
bool RanAtOneTime(const LogProcess& a, const LogProcess& b) {
    const bool isSet = a.clocks.size() > 1 || b.clocks.size() > 1;
    const auto meet = [&](const ProcessClock& x, const ProcessClock& y) {
        return x.date && y.date && x.first <= y.last && y.first <= x.last &&
               (isSet || Compare(x, y).misfit <= kDateTakes);
    };
    const bool anyMeet = std::any_of(a.clocks.begin(), a.clocks.end(), [&](const ProcessClock& x) {
        return std::any_of(b.clocks.begin(), b.clocks.end(),
                           [&](const ProcessClock& y) { return meet(x, y); });
    });
    return anyMeet && (isSet || a.mostFirstSecond + (b.Last() - a.First()) / kSecond >= b.leastLastSecond);
}

/// Puts the processes of all logs together, boot by boot.
class BootNumbering {
  public:
    BootNumbering(std::vector<LogProcess>& processes, const JoinedLogs& joined)
        : processes_(processes), joined_(joined) {
        for (const LogProcess& process : processes) {
            logs_ = std::max(logs_, process.log + 1);
        }
        lastOfLog_.resize(logs_);
        numbered_.resize(processes.size());
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
            key[i] = first ? processes_[i].Earliest() : std::max(key[i - 1], processes_[i].Earliest());
        }
        std::stable_sort(order.begin(), order.end(),
                         [&](std::size_t a, std::size_t b) { return key[a] < key[b]; });
        for (const std::size_t i : order) {
            LogProcess& process = processes_[i];
            if (process.IsDated()) {
                process.boot = TakeBoot(i);
                boots_.resize(std::max(boots_.size(), process.boot));
                boots_[process.boot - 1].push_back(i);
                lastOfLog_[process.log] = process.boot;
                auto& numbered = numbered_[joined_.First(i)];
                numbered = numbered ? numbered : std::optional(i);
                collectedBoot_ = process.collected ? process.boot : collectedBoot_;
            }
        }
        PlaceUndated();
    }

  private:
    /// They stand with the dated process after them in their log, or else with the one before.
    void PlaceUndated() {
        const auto follow = [](LogProcess& process, const LogProcess& other) {
            if (process.boot == 0 && process.log == other.log) {
                process.boot = other.boot;
            }
        };
        for (std::size_t i = processes_.size(); i > 1; --i) {
            follow(processes_[i - 2], processes_[i - 1]);
        }
        for (std::size_t i = 1; i < processes_.size(); ++i) {
            follow(processes_[i], processes_[i - 1]);
        }
    }

    std::size_t TakeBoot(std::size_t number) const {
        LogProcess& process = processes_[number];
        const std::size_t last = lastOfLog_[process.log];
        if (process.collected && collectedBoot_ >= std::max<std::size_t>(last, 1)) {
            return collectedBoot_;
        }
        if (last > 0 && !process.StartsABoot()) {
            return last;
        }
        const std::size_t least = last + 1;
        const auto& fellow = numbered_[joined_.First(number)];
        if (fellow && processes_[*fellow].boot >= least) {
            TakeOver(process, processes_[*fellow]);
            return processes_[*fellow].boot;
        }
        const std::size_t from = std::max(least, boots_.size() - std::min(boots_.size(), kMostBoots) + 1);
        const auto fitOneClock = [](const LogProcess& a, const LogProcess& b) {
            return FindCommonClock(a, b).has_value();
        };
        const LogProcess* other = nullptr; // the last one that may be of the same boot
        for (const auto& sameBoot : std::initializer_list<bool (*)(const LogProcess&, const LogProcess&)>{
                 fitOneClock, RanAtOneTime}) {
            for (std::size_t boot = from; boot <= boots_.size(); ++boot) {
                for (const std::size_t member : boots_[boot - 1]) {
                    const bool ofOtherLog = processes_[member].log != process.log;
                    other = ofOtherLog ? &processes_[member] : other;
                    if (ofOtherLog && sameBoot(*other, process)) {
                        Weigh(process, *other,
                              sameBoot == fitOneClock ? BootEvidence::kClocksFit : BootEvidence::kOverlaps);
                        return boot;
                    }
                }
            }
        }
        if (other != nullptr) {
            Weigh(process, *other, BootEvidence::kClocks);
        }
        return boots_.size() + 1;
    }

    /// What tells the boot of the same process in another log tells this one's.
    static void TakeOver(LogProcess& process, const LogProcess& fellow) {
        if (process.evidence == BootEvidence::kFirst) {
            process.evidence = fellow.evidence;
            process.misfit = fellow.misfit;
            process.doubtfulAmongLogs = fellow.doubtfulAmongLogs;
        }
    }

    /// Notes how a process of another log tells the boot. The order of logs is not known, so it proves none.
    static void Weigh(LogProcess& process, const LogProcess& other, BootEvidence evidence) {
        if (process.evidence != BootEvidence::kFirst) {
            process.doubtfulAmongLogs = evidence != BootEvidence::kClocksFit;
            return;
        }
        const ProcessClock& clock = process.clocks.front();
        process.evidence = BootEvidence::kUnknown;
        if (clock.date && BeganWithTheDevice(*clock.date, clock.counter)) {
            process.evidence = BootEvidence::kNoClock;
        } else if (clock.date && other.clocks.front().date) {
            process.misfit = Compare(other.clocks.front(), clock).misfit;
            const bool isNear = evidence == BootEvidence::kClocks && process.misfit <= kDateTakes;
            process.evidence = isNear ? BootEvidence::kUnknown : evidence;
        }
    }

    std::vector<LogProcess>& processes_;
    const JoinedLogs& joined_;
    std::size_t logs_ = 0;
    std::size_t collectedBoot_ = 0;               ///< 0 before its first process
    std::vector<std::vector<std::size_t>> boots_; ///< the processes of each
    /// Of the logs that one process wrote, where it was numbered first.
    std::vector<std::optional<std::size_t>> numbered_;
    std::vector<std::size_t> lastOfLog_; ///< the boot of its last process so far; 0 before the first
};

} // namespace

void FindProcesses(std::size_t log, std::vector<LogPart>& parts, const std::vector<LogRun>& runs,
                   std::vector<LogProcess>& processes) {
    const std::size_t firstOfLog = processes.size();
    LogPart* dated = nullptr;       ///< the last one of the process before
    LogPart* datedOfThis = nullptr; ///< of this process
    LogPart* firstDated = nullptr;
    std::size_t opening = 0; ///< the first part of this process
    for (std::size_t i = 0; i < parts.size(); ++i) {
        LogPart& part = parts[i];
        if (i == 0 || part.link == PartLink::kOpening) {
            processes.emplace_back().log = log;
            opening = i;
            dated = datedOfThis != nullptr ? datedOfThis : dated;
            datedOfThis = firstDated = nullptr;
        }
        part.process = processes.size() - 1;
        LogProcess& process = processes.back();
        if (processes.size() - 1 > firstOfLog) {
            FindOthers(part, parts[opening], processes[processes.size() - 2], process);
            part.othersProcess = part.others.empty() ? std::nullopt : std::optional(processes.size() - 2);
        }
        Include(process, part, runs[part.run]);
        datedOfThis = part.date ? &part : datedOfThis;
        firstDated = firstDated == nullptr ? datedOfThis : firstDated;
        const bool last = i + 1 == parts.size() || parts[i + 1].link == PartLink::kOpening;
        if (last && processes.size() - 1 > firstOfLog) {
            LogProcess& before = processes[processes.size() - 2];
            before.nextOpening = process.clocks.front().date ? std::optional(process.First()) : std::nullopt;
            Comparison comparison =
                dated != nullptr ? CompareBoots(before, *dated, runs[dated->run], process) : Comparison();
            ConfirmCounters(comparison, dated, firstDated);
            process.apart = process.collected && !before.collected;
            process.evidence = comparison.evidence;
            process.misfit = comparison.misfit;
            process.fall = comparison.fall;
        }
    }
}

void NumberBoots(std::vector<LogProcess>& processes, const JoinedLogs& joined) {
    BootNumbering(processes, joined).Number();
}

} // namespace NimaPost
