#include "tools/rings/Rings.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>

namespace NimaPost {

const std::array<std::string_view, RING_COUNT> kRingNames{
    "Tracing",          "RasterCtl",      "PrintEngine",     "Assurance",    "PageLang",   "Platform",
    "Timing",           "EngineLink",     "DataStore",       "PeerLink",     "Panel",      "PanelState",
    "JobTrack",         "AssuranceStrip", "HwAccel",         "ModuleHub",    "Copier",     "Facsimile",
    "ScanEngine",       "GraphicsFilter", "PrintFrontPipe",  "WebSvc",       "ScanToDest", "ImageStore",
    "ManagedAssurance", "ImageBridge",    "PrintPipeStatus", "FacsimileCmd", "PreviewJob", "ManagedVm",
    "Consumables"};

namespace {

constexpr std::string_view kHeading = "######## Ring Buffer ";
constexpr std::string_view kBegin = "BEGIN RING BUFFER DUMP";
constexpr std::string_view kEnd = "END RING BUFFER DUMP";
/// Far more records than any text dump of the library holds.
constexpr std::size_t kMostTextRecords = 1 << 20;
/// Headings are 31 in a dump; an index or a name may be wrong, and a text hold several dumps.
constexpr std::size_t kMostTextRings = 1024;
/// A step that stands out among a ring's steps does so by this factor.
constexpr std::int64_t kStandsOut = 8;

std::int64_t StepBetween(const RingRecord& a, const RingRecord& b) {
    return StepForward(a.data.timestamp, b.data.timestamp);
}

/// Threads of one process lie closer together than this in its address space, and so do their identifiers.
constexpr std::uint32_t kOneProcess = 1U << 29;
/// The head of a dump is written before the rings are, and the device goes on meanwhile.
constexpr std::int64_t kDumpTakes = kSecond / 5;

/// The places that no thread writes on both sides of: perhaps another process took the ring over there and
/// began at slot 0 again.
std::vector<std::size_t> ChangesOfThreads(const std::vector<RingRecord>& records) {
    std::unordered_map<std::uint32_t, std::size_t> last;
    for (std::size_t i = 0; i < records.size(); ++i) {
        last[records[i].data.threadId] = i;
    }
    std::size_t reach = 0;
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i + 1 < records.size(); ++i) {
        reach = std::max(reach, last[records[i].data.threadId]);
        if (reach == i) {
            places.push_back(i + 1);
        }
    }
    return places;
}

bool AreOfOneProcess(const RingRecord& a, const RingRecord& b) {
    const std::uint32_t apart = a.data.threadId - b.data.threadId;
    return std::min(apart, 0 - apart) < kOneProcess;
}

/// How long before the head of a dump the record in front of a place was written, at the least.
std::int64_t BeforeHead(const std::vector<RingRecord>& records, std::size_t place, std::int64_t ticks) {
    const RingRecord& newest = records[(place + records.size() - 1) % records.size()];
    const std::int64_t step = StepForward(newest.data.timestamp, ticks);
    return step > kCounterPeriod - kDumpTakes ? 0 : step;
}

/// The step from newest to oldest leads back in time, so nothing ties it to the others: in a busy ring it is
/// by far the widest when read as a step forward.
std::size_t WidestStep(const std::vector<RingRecord>& records, bool& standsOut) {
    std::size_t place = 0;
    std::int64_t widest = -1;
    std::int64_t second = -1;
    for (std::size_t i = 0; i < records.size(); ++i) {
        const std::size_t next = (i + 1) % records.size();
        const std::int64_t step = StepBetween(records[i], records[next]);
        if (step > widest) {
            second = widest;
            widest = step;
            place = next;
        } else {
            second = std::max(second, step);
        }
    }
    standsOut = widest > kStandsOut * std::max<std::int64_t>(second, 1);
    return place;
}

/// Turns slot order into time order. `full`: every slot of the ring has been written at some time. `ticks`:
/// when the dump that the ring stands in was begun.
void FindSeam(Ring& ring, bool full, std::optional<std::int64_t> ticks) {
    auto& records = ring.records;
    if (records.size() < 2) {
        return;
    }
    bool standsOut = false;
    std::size_t place = full ? WidestStep(records, standsOut) : 0;
    ring.seam = !full ? Seam::kNone : standsOut ? Seam::kLikely : Seam::kUncertain;
    const auto changes = standsOut ? std::vector<std::size_t>() : ChangesOfThreads(records);
    if (ticks) {
        for (const std::size_t change : changes) {
            if (BeforeHead(records, change, *ticks) < BeforeHead(records, place, *ticks)) {
                place = change;
                ring.seam = Seam::kLikely;
            }
        }
    } else if (!changes.empty()) {
        ring.seam = Seam::kUncertain;
        const auto farApart = std::find_if(changes.begin(), changes.end(), [&](std::size_t change) {
            return !AreOfOneProcess(records[change - 1], records[change]);
        });
        place = farApart != changes.end() ? *farApart : full && changes.size() == 1 ? changes.front() : place;
    }
    std::rotate(records.begin(), records.begin() + static_cast<std::ptrdiff_t>(place), records.end());
}

void RecoverTimes(Ring& ring) {
    CounterClock clock;
    for (RingRecord& record : ring.records) {
        record.elapsed = clock.Next(record.data.timestamp, record.data.threadId);
    }
    ring.clockBreaks = clock.Breaks();
}

/// Records of one ring as they lie in the segment.
void TakeSlots(std::string_view bytes, Ring& ring) {
    const std::size_t count = bytes.size() / RING_RECORD_SIZE;
    std::size_t used = 0;
    for (std::size_t slot = 0; slot < count; ++slot) {
        RingRecord record;
        std::memcpy(&record.data, bytes.data() + slot * RING_RECORD_SIZE, RING_RECORD_SIZE);
        if (record.data.timestamp != 0) {
            record.slot = static_cast<std::uint32_t>(slot);
            ring.records.push_back(record);
            ++used;
        }
    }
    FindSeam(ring, used == ring.entries, std::nullopt);
    RecoverTimes(ring);
}

std::string_view TakeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
    const std::string_view line = WithoutLineEnd(text.substr(0, end));
    text.remove_prefix(end);
    return line;
}

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

/// A ring's heading carries its name, or its index where the dump came from the segment.
bool ReadHeading(std::string_view line, Ring& ring) {
    if (!TakeLiteral(line, kHeading) || !line.ends_with(" ########")) {
        return false;
    }
    line.remove_suffix(9);
    const auto* named = std::find(kRingNames.begin(), kRingNames.end(), line);
    std::uint64_t index = 0;
    if (named != kRingNames.end()) {
        ring.index = static_cast<std::uint32_t>(named - kRingNames.begin());
        ring.name = line;
    } else if (ParseNumber(line, index) && index < RING_COUNT) {
        ring.index = static_cast<std::uint32_t>(index);
        ring.name = kRingNames[index];
    } else {
        ring.index = RING_COUNT;
        AppendPrintable(ring.name, line);
    }
    return true;
}

constexpr std::array<std::uint32_t, RING_COUNT> kRingEntries{
    256, 1024, 512, 256, 512, 512, 512, 2048, 1024, 512, 256, 512, 512, 256,  512, 256,
    512, 512,  256, 256, 512, 256, 512, 256,  512,  256, 256, 512, 256, 1024, 256};

void FinishTextRing(Ring& ring, std::optional<std::int64_t> ticks) {
    ring.entries = ring.index < RING_COUNT ? kRingEntries[ring.index] : 0;
    FindSeam(ring, ring.entries != 0 && ring.records.size() == ring.entries, ticks);
    RecoverTimes(ring);
}

} // namespace

bool LooksLikeRingSegment(std::string_view front, std::uint64_t size) {
    std::array<std::uint32_t, 33> words{};
    if (front.size() < sizeof(words)) {
        return false;
    }
    std::memcpy(words.data(), front.data(), sizeof(words));
    const std::uint64_t segment = words[1];
    if (segment <= RING_DIRECTORY_SIZE || segment % RING_DIRECTORY_SIZE != 0 || segment > (1U << 30)) {
        return false;
    }
    std::uint64_t records = 0;
    for (std::size_t i = 0; i < RING_COUNT; ++i) {
        records += words[2 + i];
    }
    const bool directory = records * RING_RECORD_SIZE + RING_DIRECTORY_SIZE <= segment && records > 0;
    return directory || size + 1 == segment;
}

bool LooksLikeRingText(std::string_view front) {
    std::string_view line = front.substr(0, front.find('\n'));
    return TakeLiteral(line, "Current Date/Time: ") || front.starts_with(kBegin) ||
           front.starts_with("\r\nBEGIN RING BUFFER DUMP");
}

std::optional<RingSet> ReadRingSegment(const InputFile& file, Findings& findings) {
    constexpr std::uint64_t kDirectoryHead = 132;
    std::array<char, kDirectoryHead> head{};
    if (file.ReadAt(0, head) < head.size()) {
        findings.Damage("Too short for the rings' directory.");
        return std::nullopt;
    }
    std::array<std::uint32_t, kDirectoryHead / 4> words{};
    std::memcpy(words.data(), head.data(), head.size());
    const std::uint32_t segmentSize = words[1];
    if (segmentSize <= RING_DIRECTORY_SIZE) {
        findings.Damage("No rings were ever laid out here: the directory's segment size is " +
                        std::to_string(segmentSize) + ".");
        return std::nullopt;
    }
    if (!LooksLikeRingSegment({head.data(), head.size()}, file.Size())) {
        findings.Damage("Neither a ring segment nor a text dump of one.");
        return std::nullopt;
    }
    RingSet set;
    set.processId = words[0];
    std::uint64_t offset = RING_DIRECTORY_SIZE;
    std::uint64_t missing = 0;
    for (std::uint32_t i = 0; i < RING_COUNT; ++i) {
        Ring ring;
        ring.index = i;
        ring.name = kRingNames[i];
        ring.entries = words[2 + i];
        const std::uint64_t bytes = std::uint64_t{ring.entries} * RING_RECORD_SIZE;
        const std::uint64_t present = file.Size() > offset ? std::min(file.Size() - offset, bytes) : 0;
        std::string content(static_cast<std::size_t>(present), '\0');
        content.resize(file.ReadAt(offset, content));
        // The file is a byte shorter than the mapping: the last record lacks its last byte, which is shown as
        // zero.
        if (bytes - content.size() == 1 && i + 1 == RING_COUNT) {
            content.push_back('\0');
        }
        missing += (bytes - content.size() + RING_RECORD_SIZE - 1) / RING_RECORD_SIZE;
        TakeSlots(content, ring);
        offset += bytes;
        set.rings.push_back(std::move(ring));
    }
    if (offset > segmentSize) {
        findings.Damage("The directory promises " + std::to_string(offset) + " bytes in a segment of " +
                        std::to_string(segmentSize) + ".");
    }
    if (missing > 0) {
        findings.Damage("The file is cut: it lacks " + Counted(missing, "record") + ".");
    }
    return set;
}

void ReadDumpHead(std::string_view text, std::optional<RawDate>& date, std::optional<std::int64_t>& ticks) {
    for (int lines = 0; lines < 3 && !text.empty(); ++lines) {
        std::string_view line = TakeLine(text);
        const std::size_t at = line.find(" Date/Time: ");
        std::int64_t value = 0;
        if (at != std::string_view::npos) {
            line.remove_prefix(at + 12);
            date = TakeSpacedDate(line);
        } else if (TakeLiteral(line, "Ticks: ") && TakeDecimal(line, value)) {
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
        if (line == kEnd) {
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
    if (strange > 0) {
        findings.Damage(Counted(strange, "line") + " of the ring dump cannot be read.");
    }
    if (!ended) {
        findings.Damage("The ring dump was cut short: it has no end line.");
    }
}

std::optional<RingSet> ReadRingText(std::string_view text, Findings& findings) {
    const std::size_t begin = text.find(kBegin);
    RingSet set;
    set.isText = true;
    ReadDumpHead(text, set.date, set.ticks);
    if (begin == std::string_view::npos) {
        findings.Damage("No ring dump in this text.");
        return std::nullopt;
    }
    ReadRingLines(text.substr(begin + kBegin.size()), set, findings);
    return set;
}

} // namespace NimaPost
