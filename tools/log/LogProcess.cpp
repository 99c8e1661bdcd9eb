#include "tools/log/LogProcess.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/log/LogLine.h"

#include <algorithm>

namespace NimaPost {

void LogProcess::Absorb(const LogProcess& other) {
    threads.insert(other.threads.begin(), other.threads.end());
    first = std::min(first, other.first);
    last = std::max(last, other.last);
}

bool FitOneClock(const LogProcess& a, const LogProcess& b) {
    return a.date && b.date &&
           WallOffset(*a.date, 0).Compare(*b.date, StepForward(a.counter, b.counter)).misfit <= kFitsClosely;
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
        case BootEvidence::kUnknown:
            break;
    }
    return "unknown";
}

std::string InWords(const LogProcess& process) {
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
            return "another boot, or the clock was set back: its date is earlier than the last line's";
        case BootEvidence::kClocks:
            return "another boot, or the clock was set: the dates miss one clock by " +
                   Duration(process.misfit);
        case BootEvidence::kClocksFit:
            return "probably the same boot: the dates fit one clock within 0.0001 s";
        case BootEvidence::kUnknown:
            break;
    }
    return process.misfit > 0
               ? "perhaps another boot: the dates miss one clock by only " + Duration(process.misfit)
               : "perhaps another boot: no two dates can be compared";
}

ProcessFacts FactsOf(const LogProcess& process) {
    ProcessFacts facts;
    facts.threads = process.threads;
    if (process.hasWall) {
        facts.boot = process.boot;
        facts.first = process.first;
        facts.last = process.last;
    }
    return facts;
}

} // namespace NimaPost
