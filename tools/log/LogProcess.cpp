#include "tools/log/LogProcess.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/log/LogLine.h"

#include <algorithm>

namespace NimaPost {

void LogProcess::Absorb(const LogProcess& other) {
    threads.insert(other.threads.begin(), other.threads.end());
    linesMayBeOlder = linesMayBeOlder || other.linesMayBeOlder;
    hidesSeam = hidesSeam || other.hidesSeam;
    mayBeQuote = mayBeQuote || other.mayBeQuote;
    sharesThreads = sharesThreads || other.sharesThreads;
    hasOlderRounds = hasOlderRounds || other.hasOlderRounds;
    hasThreadsOfBefore = hasThreadsOfBefore || other.hasThreadsOfBefore;
    ++logs;
    // Where a clock of the other belongs among these only one clock in common tells.
    const auto common = FindCommonClock(*this, other);
    if (common && clocks.size() == 1 && other.clocks.size() == 1) {
        clocks[0].first = std::min(clocks[0].first, other.clocks[0].first);
        clocks[0].last = std::max(clocks[0].last, other.clocks[0].last);
    } else if (other.clocks.size() > clocks.size()) {
        clocks = other.clocks;
    }
}

bool LogProcess::IsDated() const {
    return std::any_of(clocks.begin(), clocks.end(),
                       [](const ProcessClock& clock) { return clock.date.has_value(); });
}

std::int64_t LogProcess::Earliest() const {
    return std::min_element(clocks.begin(), clocks.end(),
                            [](const ProcessClock& a, const ProcessClock& b) { return a.first < b.first; })
        ->first;
}

WallOffset::Fit Compare(const ProcessClock& a, const ProcessClock& b) {
    return WallOffset(*a.date, 0).Compare(*b.date, StepForward(a.counter, b.counter));
}

std::optional<CommonClock> FindCommonClock(const LogProcess& a, const LogProcess& b) {
    for (const ProcessClock& clock : a.clocks) {
        for (const ProcessClock& other : b.clocks) {
            if (clock.date && other.date && !BeganWithTheDevice(*clock.date, clock.counter) &&
                Compare(clock, other).misfit <= kFitsClosely) {
                return CommonClock{&clock, &other};
            }
        }
    }
    return std::nullopt;
}

const char* EvidenceCodeOf(const LogProcess& process) {
    if (process.collected) {
        return "manifest";
    }
    switch (process.evidence) {
        case BootEvidence::kFirst:
            return "first";
        case BootEvidence::kUptime:
            return "uptime";
        case BootEvidence::kDate:
            return "date";
        case BootEvidence::kClocks:
            return "clocks";
        case BootEvidence::kClocksFit:
            return "clocks-fit";
        case BootEvidence::kOverlaps:
            return "overlaps";
        case BootEvidence::kNoClock:
            return "no-clock";
        case BootEvidence::kUnknown:
            break;
    }
    return "unknown";
}

std::string InWords(const LogProcess& process) {
    const std::string earlier = "its date is earlier than the last line's by " + Duration(process.fall);
    const std::string fell = process.fall > 0 ? ", though " + earlier : std::string();
    if (process.collected) {
        return "of the boot in which the files were collected";
    }
    switch (process.evidence) {
        case BootEvidence::kFirst:
            return "the first in its log";
        case BootEvidence::kUptime:
            return "another boot: the device had then run for at most " +
                   Counted(process.mostFirstSecond, "second") + ", less than before";
        case BootEvidence::kDate:
            return "another boot, or the clock was set back: " + earlier;
        case BootEvidence::kClocks:
            return "another boot, or the clock was set: the dates miss one clock by " +
                   Duration(process.misfit);
        case BootEvidence::kClocksFit:
            return "probably the same boot: the dates fit one clock within 0.0001 s" + fell +
                   (fell.empty() ? "" : ", so that these lines may be older");
        case BootEvidence::kOverlaps:
            return "perhaps the same boot: it ran at the same time as a process of another log, but their "
                   "dates "
                   "miss one clock by " +
                   Duration(process.misfit);
        case BootEvidence::kNoClock:
            return "perhaps another boot: the wall clock seems to begin with each, so that the dates of any "
                   "two fit" +
                   fell;
        case BootEvidence::kUnknown:
            break;
    }
    return process.misfit > 0
               ? "perhaps another boot: the dates miss one clock by only " + Duration(process.misfit) + fell
               : "perhaps another boot: no two dates can be compared";
}

ProcessFacts FactsOf(const LogProcess& process) {
    ProcessFacts facts;
    facts.threads = process.threads;
    facts.proof = InWords(process);
    if (process.doubtfulAmongLogs && !process.collected) {
        facts.proof += "; which boot of those in other logs, its dates do not prove";
    }
    if (process.mayHaveRestarted) {
        facts.proof +=
            "; the clock was set before its log rolled, or the device restarted there and another process "
            "has the same threads";
    }
    if (process.logs > 1) {
        facts.probablyOne = true;
        facts.proof += "; probably one process wrote " + Counted(process.logs, "log") +
                       ": they share threads and fit one clock";
    }
    facts.assumed = process.linesMayBeOlder || process.hidesSeam || process.mayBeQuote;
    facts.linesProbable = facts.assumed || process.sharesThreads || process.hasOlderRounds ||
                          process.mayHaveRestarted || process.hasThreadsOfBefore;
    if (process.linesMayBeOlder) {
        facts.proof += "; its lines are probably its own: the thread that opened the log wrote none";
    }
    if (process.hidesSeam) {
        facts.proof += "; its lines are probably its own: older ones may stand after the newest";
    }
    if (process.mayBeQuote) {
        facts.proof +=
            "; perhaps there is no such process: the line that tells of it may be a part of a message, and "
            "what follows be of the process before";
    }
    if (process.sharesThreads) {
        facts.proof += "; another process has its threads, and older lines of these may be either's";
    }
    if (process.hasOlderRounds) {
        facts.proof += "; its overwritten lines are probably its own, by their threads";
    }
    if (process.hasThreadsOfBefore) {
        facts.proof += "; its lines are probably its own: the process before it has some of its threads, too";
    }
    facts.evidence = EvidenceCodeOf(process);
    const bool isProven = process.collected || process.evidence == BootEvidence::kFirst ||
                          process.evidence == BootEvidence::kUptime;
    facts.doubtful = !isProven || process.doubtfulAmongLogs || process.mayHaveRestarted || process.mayBeQuote;
    if (process.IsDated()) {
        facts.boot = process.boot;
        facts.first = process.First();
        facts.last = process.Last();
    }
    return facts;
}

} // namespace NimaPost
