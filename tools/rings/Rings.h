#pragma once

#include "tools/base/Findings.h"
#include "tools/base/InputFile.h"
#include "tools/base/WallClock.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <Diagnostics/Formats.h>

namespace NimaPost {

/// The rings' names, in index order; the segment does not hold them.
extern const std::array<std::string_view, RING_COUNT> kRingNames;

struct RingRecord {
    std::int64_t elapsed = 0; ///< nanoseconds since the ring's oldest record, at the least
    std::uint32_t slot = 0;
    RingBufferData data{};
};

/// Where the newest record of a ring meets the oldest.
enum class Seam : unsigned char {
    kNone,     ///< the ring has not filled: slot 0 is the oldest
    kLikely,   ///< one place stands out
    kUncertain ///< nothing recorded tells; the likeliest place was taken
};

struct Ring {
    std::uint32_t index = 0;
    std::string name;
    std::uint32_t entries = 0; ///< 0 where the input does not tell
    Seam seam = Seam::kNone;
    std::uint64_t clockBreaks = 0;
    std::vector<RingRecord> records; ///< oldest first
};

/// All rings of a segment or of a text dump of one.
struct RingSet {
    bool isText = false;
    std::optional<std::uint32_t> processId;
    /// From the head of a text dump: when it was written.
    std::optional<RawDate> date;
    std::optional<std::int64_t> ticks;
    std::vector<Ring> rings;
};

/// Whether a whole file of this size and front can be the segment.
bool LooksLikeRingSegment(std::string_view front, std::uint64_t size);
bool LooksLikeRingText(std::string_view front);

/// Empty where the file is no segment or no rings were laid out; the findings say so.
std::optional<RingSet> ReadRingSegment(const InputFile& file, Findings& findings);

/// Reads a text dump of either kind: headings with names or with indices.
std::optional<RingSet> ReadRingText(std::string_view text, Findings& findings);

/// Reads the rings between the "BEGIN" and "END RING BUFFER DUMP" of a longer text such as a crash log.
void ReadRingLines(std::string_view text, RingSet& set, Findings& findings);

/// The head of every text dump and crash log: "Crash Date/Time: ...", "Ticks: ...".
void ReadDumpHead(std::string_view text, std::optional<RawDate>& date, std::optional<std::int64_t>& ticks);

} // namespace NimaPost
