#pragma once

#include "tools/base/WallClock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <Diagnostics/Formats.h>

namespace NimaPost {

struct RingRecord {
    std::int64_t elapsed = 0; ///< nanoseconds since the ring's oldest record, at the least
    std::uint32_t slot = 0;
    std::uint16_t process = 0; ///< of those that used the rings one after the other, the oldest 0
    RingBufferData data{};
};

/// Where the newest record of a ring meets the oldest.
enum class Seam : unsigned char {
    kNone,     ///< the ring has not filled: slot 0 is the oldest
    kLikely,   ///< one place is clearly distinct
    kUncertain ///< nothing recorded shows it; the most likely place was taken
};

/// Whether a ring has wrapped, in a word.
inline const char* SeamName(Seam seam) {
    return seam == Seam::kNone ? "no" : seam == Seam::kLikely ? "probably" : "perhaps";
}

struct Ring {
    std::uint32_t index = 0;
    std::string name;
    std::uint32_t entries = 0; ///< 0 if the input does not say
    Seam seam = Seam::kNone;
    std::uint64_t clockBreaks = 0;
    std::vector<RingRecord> records; ///< oldest first
    /// The first record of each process, where one took the ring over from another.
    std::vector<std::size_t> stretches{0};
};

/// All rings of a segment, or of a text dump of one.
struct RingSet {
    bool isText = false;
    std::optional<std::uint32_t> processId;
    /// From the head of a text dump: when it was written.
    std::optional<RawDate> date;
    std::optional<std::int64_t> ticks;
    std::optional<std::uint64_t> bootCycle; ///< from that of a crash log
    std::vector<Ring> rings;
    std::size_t processes = 1; ///< that used the rings one after the other

    /// The thread that wrote the set as text: the library records the steps of that in its own ring.
    std::optional<std::uint32_t> Writer() const;
};

} // namespace NimaPost
