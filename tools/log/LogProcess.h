#pragma once

#include "tools/axis/Processes.h"
#include "tools/base/WallClock.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace NimaPost {

/// What tells whether a process ran in the boot of the one before it in the same log, the strongest first.
enum class BootEvidence : unsigned char {
    kFirst,     ///< none before it
    kUptime,    ///< another boot: its clock had run for less time than the other's
    kDate,      ///< another boot or the clock was set back: its date is earlier
    kClocks,    ///< another boot or the clock was set: no whole number of periods explains both dates
    kClocksFit, ///< probably the same boot: one clock explains both dates closely
    kUnknown,   ///< nothing
};

/// A process that wrote a log.
struct LogProcess {
    std::size_t log = 0; ///< in the log set's logs
    std::set<std::uint32_t> threads;
    /// Bounds of the monotonic clock, in whole seconds.
    std::int64_t mostFirstSecond = std::numeric_limits<std::int64_t>::max() / 2;
    std::int64_t leastLastSecond = 0;
    bool hasWall = false;
    std::int64_t first = 0; ///< its first and last line: nanoseconds since 1970 if `hasWall`
    std::int64_t last = 0;
    std::optional<RawDate> date; ///< of its first calibration line, with the counter of that
    std::int64_t counter = 0;
    std::size_t run = 0;    ///< of that line, in the log set's runs
    std::int64_t start = 0; ///< on the run's axis
    /// When the next process opened the same log.
    std::optional<std::int64_t> nextOpening;
    BootEvidence evidence = BootEvidence::kFirst;
    std::int64_t misfit = 0; ///< nanoseconds, by which the dates miss one clock
    std::size_t boot = 0;    ///< from 1; 0 where nothing is dated
    bool collected = false;  ///< of the boot in which the files were collected, which outweighs the evidence
    bool apart = false;      ///< so, but not the process before

    /// Takes over what another log tells of the same process.
    void Absorb(const LogProcess& other);
    bool StartsABoot() const { return evidence != BootEvidence::kClocksFit || apart; }
};

/// Whether the dates and counters of two processes fit one clock closely.
bool FitOneClock(const LogProcess& a, const LogProcess& b);

/// Of what tells its boot.
const char* EvidenceCodeOf(const LogProcess& process);
/// A sentence for people.
std::string InWords(const LogProcess& process);

/// As other sources see it.
ProcessFacts FactsOf(const LogProcess& process);

} // namespace NimaPost
