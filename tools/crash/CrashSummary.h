#pragma once

#include "tools/crash/CrashLog.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace NimaPost {

/// What the time of a crash log rests on. By a log's clock it may be another, and be cut less.
inline constexpr const char* kByHead = "; by its own date";
inline constexpr const char* kByLog = "; by the clock of a log";

/// A ring that was written to, and how far its newest record is from the newest of the other rings or from
/// the crash.
struct ActiveRing {
    const Ring* ring = nullptr;
    std::int64_t newest = 0; ///< nanoseconds, negative before it
};

/// The rings of a set that hold records, the one written last first.
std::vector<ActiveRing> ActiveRings(const RingSet& set);

/// What failed, as pairs of a label and a value for people to read; `when` may be empty.
std::vector<std::pair<std::string, std::string>> FailureInWords(const CrashLog& log, const std::string& when);

} // namespace NimaPost
