#pragma once

#include "tests/simulator/World.h"

#include <span>
#include <string_view>

namespace Simulator {

using Play = void(World& world);
/// Hosts that write logs.
Play OneRun, Rolls, Rewinds, UnbufferedRewinds, ChangedMaximum, OpenedAnew, Appended, OtherOpenings, Boots,
    BootsWithoutClock, RolledBoots, ClockSet, Kills, TornTails, Quotes, LogsInTurn, MovedLog, TwoFiles,
    TwoFilesBoots, TwoFilesClockSet, SharedFile;
/// Devices that have a binary trace or rings beside their logs, and crash.
Play Traces, TraceKills, TraceRestarts, SharedTrace, Rings, SlowRings, RingRestarts, CrashLogs, LoneCrashLogs,
    LoneDumps, Everything;

/// A way in which devices live.
struct Scenario {
    std::string_view name;
    Play* play;
    /// Of the main set, so many folders in a thousand hold one of the cases that no reader can tell
    /// (doc/clock.md).
    int expectedPerMille;
    /// The same of the second set.
    int expectedOfSecond = 10;
    /// Of the main set, folders with a likely bound that assumes that nothing older stands among a log's
    /// lines, and something does.
    int expectedUnlikely = 1;

    /// How many of so many folders may fail before something is wrong: chance alone brings more than four
    /// deviations above what is expected in less than one run of ten thousand.
    static std::uint64_t Tolerated(std::uint64_t folders, int perMille);
};

std::span<const Scenario> AllScenarios();

} // namespace Simulator
