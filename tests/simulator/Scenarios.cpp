#include "tests/simulator/Scenarios.h"

#include "tests/simulator/DeviceScenarios.h"
#include "tests/simulator/TextScenarios.h"

#include <array>
#include <cmath>

namespace Simulator {

namespace {

constexpr std::array kScenarios{
    Scenario{"one-run", OneRun, 10},
    Scenario{"rolls", Rolls, 10},
    Scenario{"rewinds", Rewinds, 80},
    Scenario{"appended", Appended, 10},
    Scenario{"other-openings", OtherOpenings, 130},
    Scenario{"boots", Boots, 20},
    Scenario{"boots-without-clock", BootsWithoutClock, 15},
    Scenario{"clock-set", ClockSet, 140},
    Scenario{"kills", Kills, 20},
    Scenario{"torn-tails", TornTails, 10},
    Scenario{"two-files", TwoFiles, 25},
    Scenario{"two-files-clock-set", TwoFilesClockSet, 25},
    Scenario{"shared-file", SharedFile, 1000},
    Scenario{"traces", Traces, 10},
    Scenario{"trace-kills", TraceKills, 20},
    Scenario{"trace-restarts", TraceRestarts, 20},
    Scenario{"shared-trace", SharedTrace, 10},
    Scenario{"rings", Rings, 10},
    Scenario{"slow-rings", SlowRings, 10},
    Scenario{"ring-restarts", RingRestarts, 25},
    Scenario{"crash-logs", CrashLogs, 45},
    Scenario{"everything", Everything, 420},
};

} // namespace

std::uint64_t Scenario::Tolerated(std::uint64_t folders, bool main) const {
    const double expected =
        static_cast<double>(folders) * (main ? expectedPerMille : expectedOfSecond) / 1000;
    return static_cast<std::uint64_t>(std::ceil(expected + 4 * std::sqrt(expected)));
}

std::span<const Scenario> AllScenarios() {
    return kScenarios;
}

} // namespace Simulator
