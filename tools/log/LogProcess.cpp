#include "tools/log/LogProcess.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"

namespace NimaPost {

const char* CodeOf(BootEvidence evidence) {
    switch (evidence) {
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
    std::string misfit;
    AppendSeconds(misfit, process.misfit);
    switch (process.evidence) {
        case BootEvidence::kFirst:
            return "the first in its log";
        case BootEvidence::kUptime:
            return "another boot: the device had then run for at most " +
                   Counted(process.mostFirstSecond, "second") + ", less than before";
        case BootEvidence::kDate:
            return "another boot, or the clock was set back: its date is earlier than the last line's";
        case BootEvidence::kClocks:
            return "another boot, or the clock was set: the dates miss one clock by" + misfit + " s";
        case BootEvidence::kClocksFit:
            return "probably the same boot: the dates fit one clock within 0.0001 s";
        case BootEvidence::kUnknown:
            break;
    }
    return process.misfit > 0 ? "perhaps another boot: the dates miss one clock by only" + misfit + " s"
                              : "perhaps another boot: no two dates can be compared";
}

} // namespace NimaPost
