#include "tests/simulator/Scenarios.h"

#include <array>
#include <cmath>

namespace Simulator {

namespace {

constexpr std::array kScenarios{
    Scenario{"one-run", OneRun, 1},
    Scenario{"rolls", Rolls, 1, 5},
    Scenario{"rewinds", Rewinds, 2, 10, 25},
    Scenario{"unbuffered-rewinds", UnbufferedRewinds, 2, 10, 12},
    Scenario{"changed-maximum", ChangedMaximum, 40, 10, 190},
    Scenario{"opened-anew", OpenedAnew, 40, 10, 60},
    Scenario{"appended", Appended, 1},
    Scenario{"other-openings", OtherOpenings, 5, 5, 25},
    Scenario{"boots", Boots, 21},
    Scenario{"boots-without-clock", BootsWithoutClock, 2},
    Scenario{"rolled-boots", RolledBoots, 13},
    Scenario{"clock-set", ClockSet, 9, 10, 12},
    Scenario{"kills", Kills, 12},
    Scenario{"torn-tails", TornTails, 7},
    Scenario{"quotes", Quotes, 10},
    Scenario{"logs-in-turn", LogsInTurn, 10},
    Scenario{"moved-log", MovedLog, 1},
    Scenario{"two-files", TwoFiles, 1, 10, 5},
    Scenario{"two-files-boots", TwoFilesBoots, 3},
    Scenario{"two-files-clock-set", TwoFilesClockSet, 5},
    Scenario{"shared-file", SharedFile, 3, 10, 185},
    Scenario{"traces", Traces, 1},
    Scenario{"trace-kills", TraceKills, 10},
    Scenario{"trace-restarts", TraceRestarts, 6},
    Scenario{"shared-trace", SharedTrace, 1},
    Scenario{"rings", Rings, 1},
    Scenario{"slow-rings", SlowRings, 1},
    Scenario{"ring-restarts", RingRestarts, 10},
    Scenario{"crash-logs", CrashLogs, 14},
    Scenario{"lone-crash-logs", LoneCrashLogs, 2},
    Scenario{"lone-dumps", LoneDumps, 2},
    Scenario{"everything", Everything, 145, 10, 35},
};

} // namespace

std::uint64_t Scenario::Tolerated(std::uint64_t folders, int perMille) {
    const double expected = static_cast<double>(folders) * perMille / 1000;
    return static_cast<std::uint64_t>(std::ceil(expected + 4 * std::sqrt(expected)));
}

std::span<const Scenario> AllScenarios() {
    return kScenarios;
}

} // namespace Simulator
