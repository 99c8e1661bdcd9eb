#pragma once

#include "tools/base/WallClock.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// What puts a crash after the one before it. Of the first four, each outweighs those after it.
enum class CrashEvidence : unsigned char {
    kFileNumber, ///< the writer keeps older files under higher numbers
    kBootCycle,
    kCounter, ///< of one boot cycle, where the counters are so far apart that only one order is possible
    kDate,
    kFileTime, ///< when a file without a date was modified
    kAssumed,
    kNothing,
};
/// "file number"; empty for nothing.
std::string_view EvidenceInWords(CrashEvidence evidence);

/// By what the place of a crash log among others is decided.
struct CrashTraits {
    std::string file;
    std::optional<std::uint64_t> bootCycle; ///< empty where the host has set none
    std::optional<std::int64_t> ticks;
    std::optional<RawDate> date;
};

struct OrderedCrash {
    std::size_t index = 0; ///< among those that were given
    CrashEvidence after = CrashEvidence::kNothing;
};

/// Crash logs in the order in which they were written, the oldest first, as far as evidence goes. Where there
/// is none, the files' names decide.
std::vector<OrderedCrash> OrderCrashes(const std::vector<CrashTraits>& crashes);

} // namespace NimaPost
