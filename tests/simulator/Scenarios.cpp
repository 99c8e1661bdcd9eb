#include "tests/simulator/Scenarios.h"

#include "tests/simulator/DeviceScenarios.h"
#include "tests/simulator/TextScenarios.h"

#include <array>

namespace Simulator {

namespace {

constexpr std::array kScenarios{
    Scenario{"one-run", OneRun, 10},
    Scenario{"rolls", Rolls, 10},
    Scenario{"rewinds", Rewinds, 30},
    Scenario{"appended", Appended, 10},
    Scenario{"other-openings", OtherOpenings, 30},
    Scenario{"boots", Boots, 10},
    Scenario{"boots-without-clock", BootsWithoutClock, 10},
    Scenario{"clock-set", ClockSet, 100},
    Scenario{"kills", Kills, 10},
    Scenario{"torn-tails", TornTails, 10},
    Scenario{"two-files", TwoFiles, 10},
    Scenario{"shared-file", SharedFile, 100},
    Scenario{"traces", Traces, 10},
    Scenario{"trace-kills", TraceKills, 30},
    Scenario{"trace-restarts", TraceRestarts, 30},
    Scenario{"shared-trace", SharedTrace, 30},
    Scenario{"rings", Rings, 30},
    Scenario{"slow-rings", SlowRings, 500},
    Scenario{"ring-restarts", RingRestarts, 50},
    Scenario{"crash-logs", CrashLogs, 30},
    Scenario{"everything", Everything, 100},
};

} // namespace

std::span<const Scenario> AllScenarios() {
    return kScenarios;
}

} // namespace Simulator
