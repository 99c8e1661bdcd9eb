#pragma once

#include "tests/simulator/World.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Simulator {

/// What a reader can say that is not true.
enum class Fault : unsigned char {
    kUnreadable, ///< the folder, or a file of it, was refused
    kEarly,      ///< the truth is later than the time shown and its bound
    kLate,       ///< the truth is earlier
    kSetClock,   ///< a likely bound that assumes a clock that is not set, and it was: no failure
    kUnlikely,   ///< a likely bound, or order, that assumes that nothing older stands among a log's lines
    kExact,      ///< called exact, and not
    kOrder,      ///< of one process's records
    kGuess,      ///< order as well, but the reader says that it is not certain: no failure
    kMissing,    ///< a whole line that is in the files was not told
    kRepeated,   ///< told more than once
    kDamage,     ///< of an undamaged folder
    kUntold,     ///< a torn line of which no finding tells
    kProcesses,  ///< of two processes made one
    kBoots,      ///< of two boots made one
    kProof,      ///< another boot is called proven, and is none
    kSplitBoot,  ///< one boot is called two, of neither of which there is a doubt
    kThreads,    ///< a process is said to have a thread of another
    kNumbers,   ///< a process has a higher number than one of the same trace or log that began after it ended
    kStatement, ///< another boot or a clock that was set is told of, and there was neither
    kFaults
};
inline constexpr std::size_t kFaults = static_cast<std::size_t>(Fault::kFaults);
std::string_view NameOf(Fault fault);

/// What came of checking a folder.
struct Verdict {
    std::array<std::uint64_t, kFaults> counts{};
    std::vector<std::string> details; ///< of the first faults

    /// Lines of text, and records without dates: all of them, those with bounds closer than a second
    /// together, and those that bear a process's number.
    struct Share {
        std::uint64_t all = 0;
        std::uint64_t bounded = 0;
        std::uint64_t inProcess = 0;
    };
    Share lines;
    Share records;
    Share crashes;
    std::uint64_t splits = 0; ///< processes that bear several numbers

    bool Failed() const;
    void Add(Fault fault, const std::string& detail);
};

/// Whether exactness alone is asked for, as of writers that keep to nothing.
enum class Strictness : unsigned char { kEverything, kOnlyExact };

/// Reads the folder as nima-post does, once as a whole and once log by log, and compares what is said with
/// the truth. The files are those that were stored there.
Verdict Check(const std::string& folder, const Files& files, const Truth& truth, Strictness strictness);
/// Stores a world's files in the folder, which is made anew, and checks it.
Verdict StoreAndCheck(const std::string& folder, World& world, Strictness strictness);

} // namespace Simulator
