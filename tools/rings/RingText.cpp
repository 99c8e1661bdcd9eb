#include "tools/rings/RingText.h"

#include "catalogue/Marks.h"
#include "catalogue/Rings.h"
#include "tools/base/Text.h"
#include "tools/rings/RingProcesses.h"
#include "tools/rings/Seam.h"

#include <algorithm>

namespace NimaPost {

using namespace Nima::Catalogue;

namespace {

/// Far more records than any text dump of the library holds.
constexpr std::size_t kMostTextRecords = 1 << 20;
/// A dump has 31 headings; an index or a name may be wrong, and a text may hold several dumps.
constexpr std::size_t kMostTextRings = 1024;

bool TakeWord32(std::string_view& line, std::uint32_t& word) {
    std::uint64_t value = 0;
    if (!TakeLiteral(line, " 0x") || !TakeHex(line, value) || value > 0xFFFFFFFF) {
        return false;
    }
    word = static_cast<std::uint32_t>(value);
    return true;
}

/// "0000000000295806901 0x979fe6c0 0x00000001 : 0x00001001 0x00000045 0x00000000 0x00000000"
bool ReadRecordLine(std::string_view line, RingBufferData& data) {
    return TakeDecimal(line, data.timestamp) && TakeWord32(line, data.threadId) &&
           TakeWord32(line, data.words[0]) && TakeLiteral(line, " :") && TakeWord32(line, data.words[1]) &&
           TakeWord32(line, data.words[2]) && TakeWord32(line, data.words[3]) &&
           TakeWord32(line, data.words[4]) && line.empty();
}

/// A ring's heading has its name, or its index if the dump came from the segment.
bool ReadHeading(std::string_view line, Ring& ring) {
    constexpr std::string_view kEnd = kRingHeadingEnd;
    if (!TakeLiteral(line, kRingHeadingBegin) || !line.ends_with(kEnd)) {
        return false;
    }
    line.remove_suffix(kEnd.size());
    const auto* named =
        std::find_if(kRings.begin(), kRings.end(), [&](const RingRow& row) { return row.name == line; });
    std::uint64_t index = 0;
    if (named != kRings.end()) {
        ring.index = static_cast<std::uint32_t>(named - kRings.begin());
        ring.name = line;
    } else if (ParseNumber(line, index) && index < RING_COUNT) {
        ring.index = static_cast<std::uint32_t>(index);
        ring.name = kRings[index].name;
    } else {
        ring.index = RING_COUNT;
        AppendPrintable(ring.name, line);
    }
    return true;
}

void FinishTextRing(Ring& ring, std::optional<std::int64_t> ticks) {
    ring.entries = ring.index < kRings.size() ? kRings[ring.index].entries : 0;
    OrderRing(ring, ring.entries != 0 && ring.records.size() == ring.entries, ticks);
}

} // namespace

bool LooksLikeRingText(std::string_view front) {
    std::string_view line = front.substr(0, front.find('\n'));
    if (TakeLiteral(line, kRingDumpTitle) && TakeLiteral(line, kHeadDate)) {
        return true;
    }
    TakeLiteral(front, "\r\n");
    return front.starts_with(kRingDumpBegin);
}

void ReadDumpHead(std::string_view text, std::optional<RawDate>& date, std::optional<std::int64_t>& ticks) {
    for (int lines = 0; lines < 3 && !text.empty(); ++lines) {
        std::string_view line = TakeLine(text);
        const std::size_t at = line.find(kHeadDate);
        std::int64_t value = 0;
        if (at != std::string_view::npos) {
            line.remove_prefix(at + std::string_view(kHeadDate).size());
            date = TakeSpacedDate(line);
        } else if (TakeLiteral(line, kHeadTicks) && TakeDecimal(line, value)) {
            ticks = value;
        }
    }
}

void ReadRingLines(std::string_view text, RingSet& set, Findings& findings) {
    Ring* ring = nullptr;
    const std::size_t firstRing = set.rings.size();
    std::size_t records = 0;
    std::uint64_t strange = 0;
    bool ended = false;
    while (!text.empty() && !ended && records < kMostTextRecords) {
        const bool lastLine = text.find('\n') == std::string_view::npos;
        const std::string_view line = TakeLine(text);
        Ring heading;
        RingRecord record;
        if (line == kRingDumpEnd) {
            ended = true;
        } else if (set.rings.size() < kMostTextRings && ReadHeading(line, heading)) {
            set.rings.push_back(std::move(heading));
            ring = &set.rings.back();
        } else if (ring != nullptr && !lastLine && ReadRecordLine(line, record.data)) {
            record.slot = static_cast<std::uint32_t>(ring->records.size());
            ring->records.push_back(record);
            ++records;
        } else if (!line.empty()) {
            ++strange;
        }
    }
    for (std::size_t i = firstRing; i < set.rings.size(); ++i) {
        FinishTextRing(set.rings[i], set.ticks);
    }
    TellProcesses(set, findings);
    if (strange > 0) {
        findings.Damage("unreadable-line", Counted(strange, "line") + " of the ring dump cannot be read.");
    }
    if (!ended) {
        findings.Damage("dump-cut", "The ring dump was cut short: it has no end line.");
    }
}

bool HoldsRingText(std::string_view text) {
    return text.find(kRingDumpBegin) != std::string_view::npos;
}

std::optional<RingSet> ReadRingText(std::string_view text, Findings& findings) {
    const std::size_t begin = text.find(kRingDumpBegin);
    RingSet set;
    set.isText = true;
    ReadDumpHead(text, set.date, set.ticks);
    if (begin == std::string_view::npos) {
        findings.Damage("no-ring-dump", "No ring dump in this text.");
        return std::nullopt;
    }
    ReadRingLines(text.substr(begin + std::string_view(kRingDumpBegin).size()), set, findings);
    return set;
}

} // namespace NimaPost
