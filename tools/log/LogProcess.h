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

/// What tells whether a process ran in the boot of the one before it in the same log, or of the first of a
/// log in one of other logs.
enum class BootEvidence : unsigned char {
    kFirst,     ///< none before it
    kUptime,    ///< another boot: its clock had run for less time than the other's
    kDate,      ///< another boot or the clock was set back: its date is earlier, and no clock explains it
    kClocks,    ///< another boot or the clock was set: no whole number of periods explains both dates
    kClocksFit, ///< probably the same boot: one clock explains both dates closely
    kOverlaps,  ///< perhaps the same boot: it ran at the same time, but the dates miss one clock
    kNoClock,   ///< nothing: the wall clock begins with each boot, so that any two of them fit
    kUnknown,   ///< nothing
};

/// Times of one process that count from one origin. The wall clock may have been set between one such stretch
/// and the next, so they are not comparable.
struct ProcessClock {
    std::size_t run = 0;
    std::int64_t first = 0; ///< line, and the last one: nanoseconds since 1970 if the process is dated
    std::int64_t last = 0;
    std::optional<RawDate> date; ///< of its first calibration line, with the counter of that
    std::int64_t counter = 0;
    std::int64_t start = 0; ///< of that line on the run's axis
};

/// A process that wrote a log.
struct LogProcess {
    std::size_t log = 0; ///< in the log set's logs
    std::set<std::uint32_t> threads;
    /// Bounds of the monotonic clock, in whole seconds.
    std::int64_t mostFirstSecond = std::numeric_limits<std::int64_t>::max() / 2;
    std::int64_t leastLastSecond = 0;
    std::vector<ProcessClock> clocks; ///< in the order of the log
    /// When the next process opened the same log.
    std::optional<std::int64_t> nextOpening;
    BootEvidence evidence = BootEvidence::kFirst;
    std::int64_t misfit = 0; ///< nanoseconds, by which the dates miss one clock
    /// Another boot than the one before it in its log, but which of those that other logs tell of is not
    /// certain.
    bool doubtfulAmongLogs = false;
    std::size_t logs = 1;  ///< that it wrote, each with some of its threads
    std::int64_t fall = 0; ///< by which its date is at least earlier than the last line before it
    /// From 1; 0 where nothing is dated. A process without a date stands among the lines of this boot, and
    /// nothing tells whether it is of it.
    std::size_t boot = 0;
    bool collected = false; ///< of the boot in which the files were collected, which outweighs the evidence
    bool apart = false;     ///< so, but not the process before
    bool linesMayBeOlder = false; ///< all but its first one, which then are another's
    bool hidesSeam = false;       ///< somewhere in its lines older ones may begin, of whichever process
    bool mayBeQuote = false;      ///< there may be none: what tells of it may be a part of a message
    bool sharesThreads = false;   ///< with another that wrote the same rounds: lines of these have no process
    /// Older rounds are told by their threads alone to be its own.
    bool hasOlderRounds = false;
    /// The process before it has some of its threads, too, and may have written on beside it.
    bool hasThreadsOfBefore = false;
    /// What follows a roll at which the clock was set may be by a process with the same threads, after a
    /// boot.
    bool mayHaveRestarted = false;

    /// By what its own lines tell.
    bool IsDated() const;
    std::optional<std::size_t> KnownBoot() const { return IsDated() ? std::optional(boot) : std::nullopt; }
    std::int64_t First() const { return clocks.front().first; }
    /// By whichever of its clocks.
    std::int64_t Earliest() const;
    /// Earlier than the first where the clock was set back.
    std::int64_t Last() const { return clocks.back().last; }

    /// Takes over what another log tells of the same process.
    void Absorb(const LogProcess& other);
    bool StartsABoot() const { return evidence != BootEvidence::kClocksFit || apart; }
};

/// Stretches of two processes of which dates and counters fit one clock closely. The dates of a wall clock
/// that begins with the device fit any other, which tells nothing.
struct CommonClock {
    const ProcessClock* a = nullptr;
    const ProcessClock* b = nullptr;
};
std::optional<CommonClock> FindCommonClock(const LogProcess& a, const LogProcess& b);

/// How well a date and counter of another stretch fit the clock of this one.
WallOffset::Fit Compare(const ProcessClock& a, const ProcessClock& b);

/// Of what tells its boot.
const char* EvidenceCodeOf(const LogProcess& process);
/// A sentence for people.
std::string InWords(const LogProcess& process);

/// As other sources see it.
ProcessFacts FactsOf(const LogProcess& process);

} // namespace NimaPost
