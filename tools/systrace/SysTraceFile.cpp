#include "tools/systrace/SysTraceFile.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <unordered_map>

namespace NimaPost {

namespace {

constexpr std::string_view kBlockMagic = "strc";
/// Sixteen times what the library makes; a header that claims more is read as far as this.
constexpr std::uint64_t kMostEntries = std::uint64_t{1} << 24;
/// A held-up writer's next entry is claimed after a few others, not after thousands.
constexpr std::uint32_t kLongestOverlap = 64;
/// As many writers of the same event at the same moment are believed in.
constexpr int kMostWriters = 64;
constexpr std::uint32_t kNone = 0xFFFFFFFF;
/// So many records of an event tell what it looks like.
constexpr std::uint32_t kManyRecords = 20;

template <typename Struct>
bool ReadStruct(const InputFile& file, std::uint64_t offset, Struct& out) {
    std::array<char, sizeof(Struct)> bytes{};
    if (file.ReadAt(offset, bytes) < bytes.size()) {
        return false;
    }
    std::memcpy(&out, bytes.data(), bytes.size());
    return true;
}

bool IsDumpFront(std::string_view front) {
    SysTraceDumpHeader header{};
    if (front.size() < sizeof(header)) {
        return false;
    }
    std::memcpy(&header, front.data(), sizeof(header));
    return header.magic == SYSTRACE_DUMP_MAGIC;
}

/// Entries of a block in the order of their claims, which in a wrapped block is not that of the file.
struct ClaimedEntries {
    std::vector<SysTraceEntry> entries;
    std::uint32_t firstSlot = 0;
    std::uint32_t slots = 1;
    bool wrapped = false;

    std::uint32_t SlotOf(std::uint32_t position) const { return (firstSlot + position) % slots; }
};

/// The entry count, from fields that should agree: what the majority says.
std::uint32_t EntryCount(const SysTraceHeader& header, Findings& findings) {
    const std::uint64_t fromMask = std::uint64_t{header.indexMask} + 1;
    const std::uint64_t fromSize =
        header.bufferSize > SYSTRACE_HEADER_SIZE ? (header.bufferSize - SYSTRACE_HEADER_SIZE) / 8 : 0;
    std::uint64_t count = header.entryCount;
    if (count != fromMask || count != fromSize) {
        findings.Damage("The header contradicts itself: entry count " + std::to_string(header.entryCount) +
                        ", index mask " + Hex(header.indexMask) + ", buffer size " +
                        std::to_string(header.bufferSize) + ".");
        if (fromMask == fromSize) {
            count = fromMask;
        }
    }
    if (count == 0 || count > kMostEntries || !std::has_single_bit(count)) {
        findings.Damage("The entry count " + std::to_string(count) + " cannot be right.");
        count = count == 0 ? 1 : std::min(std::bit_ceil(count), kMostEntries);
    }
    return static_cast<std::uint32_t>(count);
}

/// Which slots were claimed: how many, and the oldest.
void ClaimedRange(const SysTraceHeader& header, ClaimedEntries& claimed, std::uint32_t& count,
                  Findings& findings) {
    claimed.firstSlot = 0;
    count = 0;
    if (header.wrapCount < -1) {
        findings.Damage("The wrap count " + std::to_string(header.wrapCount) +
                        " cannot be right; read as wrapped.");
    }
    if (header.wrapCount == -1) {
        return;
    }
    if (header.wrapCount == 0) {
        const std::uint64_t stored = std::uint64_t{header.writeIndex} + 1;
        count = static_cast<std::uint32_t>(std::min<std::uint64_t>(stored, claimed.slots));
        if (stored > claimed.slots && header.writeIndex != kNone) {
            findings.Remark(
                "The write index is past the end of a block that says it has not wrapped; its "
                "entries are read in slot order.");
        }
        if (header.writeIndex == kNone) {
            count = 0;
        }
        return;
    }
    claimed.wrapped = true;
    claimed.firstSlot = (header.writeIndex + 1) & (claimed.slots - 1);
    count = claimed.slots;
}

void ReadEntries(const InputFile& file, std::uint64_t offset, std::uint32_t count, ClaimedEntries& claimed,
                 Findings& findings) {
    const std::uint64_t present = file.Size() > offset ? (file.Size() - offset) / sizeof(SysTraceEntry) : 0;
    std::vector<char> bytes(static_cast<std::size_t>(std::min<std::uint64_t>(present, claimed.slots)) *
                            sizeof(SysTraceEntry));
    const std::size_t inFile = file.ReadAt(offset, bytes) / sizeof(SysTraceEntry);
    const std::uint32_t upToEnd = std::min(count, claimed.slots - claimed.firstSlot);
    // From the oldest slot to the block's end and on from its front, as far as the file has them.
    for (const auto& [first, slots] : {std::pair(claimed.firstSlot, upToEnd), {0U, count - upToEnd}}) {
        const std::size_t begin = std::min<std::size_t>(first, inFile);
        const std::size_t end = std::min<std::size_t>(std::size_t{first} + slots, inFile);
        const std::size_t before = claimed.entries.size();
        if (end > begin) {
            claimed.entries.resize(before + end - begin);
            std::memcpy(claimed.entries.data() + before, bytes.data() + begin * sizeof(SysTraceEntry),
                        (end - begin) * sizeof(SysTraceEntry));
        }
    }
    const std::size_t missing = count - claimed.entries.size();
    if (missing > 0) {
        findings.Damage("The file is cut: " + Counted(missing, "claimed entry") + " of " +
                        std::to_string(count) + " are not in it.");
        // What is left runs from the oldest slot that is there to the file's end, then on from slot 0.
        claimed.firstSlot = claimed.firstSlot < inFile ? claimed.firstSlot : 0;
        claimed.slots = std::max<std::uint32_t>(1, static_cast<std::uint32_t>(inFile));
    }
}

/// Puts records together from entries.
class Assembler {
  public:
    Assembler(SysTraceFile& trace, const ClaimedEntries& claimed, const Names& names)
        : trace_(trace),
          claimed_(claimed),
          names_(names),
          threadEntries_((trace.header.flags & SYSTRACE_FLAG_THREAD_RECORDS) != 0) {}

    void Run() {
        Gather();
        LayOutValues();
        LearnLengths();
        JudgeAll();
        TakeThreads();
    }

  private:
    /// What is known of a record besides its values while it is being put together.
    struct Draft {
        std::uint32_t position = 0;
        std::uint32_t last = 0; ///< position of its last entry
        std::uint32_t nextOfEvent = kNone;
        bool contiguous = true;
    };

    struct Event {
        std::uint32_t lastRecord = kNone;
        std::uint32_t firstRecord = kNone;
        /// Continuations that its records have, if that is known.
        std::uint32_t length = kNone;
        bool certain = false;   ///< no record of the event has another number
        bool scattered = false; ///< its records seem to have all kinds of lengths
    };

    void Gather() {
        const auto& entries = claimed_.entries;
        owner_.assign(entries.size(), kNone);
        trace_.records.reserve(entries.size() / 2);
        drafts_.reserve(entries.size() / 2);
        std::uint32_t cachedId = kNone;
        Event* event = nullptr;
        for (std::uint32_t at = 0; at < entries.size(); ++at) {
            const SysTraceEntry& entry = entries[at];
            if (entry.id == 0 && entry.value == 0) {
                ++trace_.neverStored;
                continue;
            }
            const std::uint32_t id = entry.id & ~SYSTRACE_CONTINUATION;
            if (id != cachedId || event == nullptr) {
                event = &events_[id];
                cachedId = id;
            }
            if ((entry.id & SYSTRACE_CONTINUATION) == 0) {
                Open(*event, at, entry);
            } else if (event->lastRecord == kNone) {
                CountStray(at);
            } else {
                Draft& draft = drafts_[event->lastRecord];
                draft.contiguous = draft.contiguous && draft.last + 1 == at;
                draft.last = at;
                ++trace_.records[event->lastRecord].values;
                owner_[at] = event->lastRecord;
            }
        }
    }

    void Open(Event& event, std::uint32_t at, const SysTraceEntry& entry) {
        const auto index = static_cast<std::uint32_t>(trace_.records.size());
        SysTraceRecord record;
        record.slot = claimed_.SlotOf(at);
        record.id = entry.id;
        record.stamp = entry.value;
        trace_.records.push_back(record);
        drafts_.push_back({at, at, kNone, true});
        (event.lastRecord == kNone ? event.firstRecord : drafts_[event.lastRecord].nextOfEvent) = index;
        event.lastRecord = index;
    }

    /// At the front of a wrapped block the rests of records that the wrap has cut are to be expected.
    void CountStray(std::uint32_t at) {
        if (claimed_.wrapped && at < kLongestOverlap) {
            ++trace_.cutOff;
        } else {
            ++trace_.orphans;
        }
    }

    void LayOutValues() {
        std::uint32_t sum = 0;
        for (SysTraceRecord& record : trace_.records) {
            record.firstValue = sum;
            sum += record.values;
            record.values = 0;
        }
        trace_.values.resize(sum);
        for (std::uint32_t at = 0; at < owner_.size(); ++at) {
            if (owner_[at] != kNone) {
                SysTraceRecord& record = trace_.records[owner_[at]];
                trace_.values[record.firstValue + record.values++] = claimed_.entries[at].value;
            }
        }
    }

    std::uint32_t LastValue(std::uint32_t index) const {
        const SysTraceRecord& record = trace_.records[index];
        return trace_.values[record.firstValue + record.values - 1];
    }

    /// How many continuations an event's records have: the dictionary knows, else what most of the records
    /// that stand in one piece have. And which threads write, which settles whether a record reached its end.
    void LearnLengths() {
        for (auto& [id, event] : events_) {
            if (event.firstRecord == kNone) {
                continue;
            }
            LearnLength(event);
            const SysTraceRecord& first = trace_.records[event.firstRecord];
            const EventName* name = names_.Event(first.Component(), first.Event());
            if (name == nullptr || !name->arguments) {
                continue;
            }
            const std::uint32_t length =
                static_cast<std::uint32_t>(*name->arguments) + (threadEntries_ ? 1 : 0);
            if (event.certain && event.length != length) {
                trace_.misnamed.push_back(first.id); // The dictionary is of another firmware.
            } else {
                event.length = length;
                event.certain = true;
            }
        }
        if (threadEntries_) {
            for (std::uint32_t i = 0; i < trace_.records.size(); ++i) {
                if (trace_.records[i].values > 0) {
                    ++threads_[LastValue(i)];
                }
            }
        }
    }

    void LearnLength(Event& event) {
        std::array<std::uint32_t, 16> counts{};
        std::uint32_t records = 0;
        for (std::uint32_t i = event.firstRecord; i != kNone; i = drafts_[i].nextOfEvent) {
            const std::uint32_t length = trace_.records[i].values;
            ++records;
            if (length < counts.size() && (length > 0 || !threadEntries_)) {
                ++counts[length];
            }
        }
        const auto* most = std::max_element(counts.begin(), counts.end());
        event.scattered = records > 1 && *most * 2 < records;
        if (*most > 0 && !event.scattered) {
            event.length = static_cast<std::uint32_t>(most - counts.data());
            // An event that always had so many values had as many in the record that seems to have others.
            event.certain = records >= kManyRecords && *most + records / kManyRecords >= records;
        }
    }

    void JudgeAll() {
        for (const auto& [id, event] : events_) {
            for (std::uint32_t i = event.firstRecord; i != kNone; i = drafts_[i].nextOfEvent) {
                if (trace_.records[i].state == RecordState::kWhole) {
                    Judge(i, event);
                }
            }
        }
    }

    void Judge(std::uint32_t index, const Event& event) {
        SysTraceRecord& record = trace_.records[index];
        const bool noThread = threadEntries_ && record.values == 0;
        const bool tooShort = noThread || (event.length != kNone && record.values < event.length);
        if (tooShort && MarkEntangled(index, event.length)) {
            return;
        }
        if (event.scattered && !event.certain && !drafts_[index].contiguous) {
            // Its writers were at it at the same moment all the time, and no one knows how many values it
            // has.
            record.state = RecordState::kEntangled;
            ++trace_.entangled;
            return;
        }
        const bool wrongLength = event.length != kNone && record.values != event.length;
        // A record of another length than most is doubtful where its end is no thread that anybody else is.
        const bool strangeEnd =
            wrongLength && threadEntries_ && record.values > 0 && threads_[LastValue(index)] < 2;
        if (noThread || (wrongLength && event.certain) || strangeEnd) {
            record.state = RecordState::kTorn;
            ++trace_.torn;
        }
    }

    /// Whether the values that a short record lacks stand with the records of the same event that began
    /// before it ended. All of these are entangled then.
    bool MarkEntangled(std::uint32_t first, std::uint32_t length) {
        std::uint64_t have = trace_.records[first].values;
        std::uint64_t wanted = length;
        std::uint32_t last = first;
        int writers = 1;
        for (std::uint32_t i = drafts_[first].nextOfEvent; i != kNone; i = drafts_[i].nextOfEvent) {
            if (drafts_[i].position - drafts_[last].position > kLongestOverlap || ++writers > kMostWriters) {
                return false;
            }
            last = i;
            have += trace_.records[i].values;
            if (length == kNone ? trace_.records[i].values > 1 : have >= (wanted += length)) {
                break;
            }
            if (drafts_[i].nextOfEvent == kNone) {
                return false;
            }
        }
        if (last == first || (length != kNone && have != wanted)) {
            return false;
        }
        for (std::uint32_t i = first;; i = drafts_[i].nextOfEvent) {
            trace_.records[i].state = RecordState::kEntangled;
            ++trace_.entangled;
            if (i == last) {
                return true;
            }
        }
    }

    void TakeThreads() {
        if (!threadEntries_) {
            return;
        }
        for (SysTraceRecord& record : trace_.records) {
            if (record.state == RecordState::kWhole && record.values > 0) {
                --record.values;
                record.thread = trace_.values[record.firstValue + record.values];
                record.hasThread = true;
            }
        }
    }

    SysTraceFile& trace_;
    const ClaimedEntries& claimed_;
    const Names& names_;
    bool threadEntries_;
    std::vector<Draft> drafts_;
    std::vector<std::uint32_t> owner_; ///< the record of each continuation
    std::unordered_map<std::uint32_t, Event> events_;
    std::unordered_map<std::uint32_t, std::uint32_t> threads_;
};

void RecoverTimes(SysTraceFile& trace) {
    // Processes share the block, and their main threads may share an identifier.
    CounterClock clock({kSecond / 10, kSecond / 1000});
    for (SysTraceRecord& record : trace.records) {
        // A record without any value may be an entry of the round before that nobody has overwritten.
        if (record.state == RecordState::kTorn && record.values == 0 && clock.Started()) {
            record.elapsed = clock.Near(record.stamp);
        } else {
            record.elapsed =
                clock.Next(record.stamp, record.hasThread ? std::optional(record.thread) : std::nullopt);
        }
    }
    trace.clockBreaks = clock.Breaks();
}

void Report(const SysTraceFile& trace, Findings& findings) {
    if (trace.neverStored > 0) {
        findings.Damage(Counted(trace.neverStored, "claimed entry") + " never stored.");
    }
    if (trace.orphans > 0) {
        findings.Damage(Counted(trace.orphans, "continuation") + " without a record.");
    }
    if (trace.torn > 0) {
        findings.Damage(Counted(trace.torn, "torn record") +
                        ": a writer did not finish, or entries are lost.");
    }
    if (trace.entangled > 0) {
        findings.Remark(Counted(trace.entangled, "record") +
                        " of the same event written at the same moment, whose values cannot be told apart.");
    }
    for (const std::uint32_t id : trace.misnamed) {
        findings.Remark("The dictionary gives event " + Hex(id & SYSTRACE_EVENT_MASK) + " of component " +
                        std::to_string(id >> SYSTRACE_COMPONENT_SHIFT & SYSTRACE_COMPONENT_MASK) +
                        " another number of arguments than its records have.");
    }
    if (trace.cutOff > 0) {
        findings.Remark(Counted(trace.cutOff, "entry") +
                        " at the front: what the wrap has left of older records.");
    }
    if (trace.clockBreaks > 0) {
        findings.Remark("The stamps do not fit one run of the clock in " +
                        Counted(trace.clockBreaks, "place") +
                        ": the device started anew there, or stamps are damaged.");
    }
}

} // namespace

bool LooksLikeSysTrace(std::string_view front) {
    return front.starts_with(kBlockMagic) || IsDumpFront(front);
}

std::optional<SysTraceFile> ReadSysTrace(const InputFile& file, const Names& names, Findings& findings) {
    SysTraceFile trace;
    trace.bytes = file.Size();
    std::array<char, sizeof(SysTraceDumpHeader)> front{};
    const std::size_t got = file.ReadAt(0, front);
    trace.isDump = IsDumpFront({front.data(), got});
    const std::uint64_t offset = trace.isDump ? sizeof(SysTraceDumpHeader) : 0;
    if (!trace.isDump && !std::string_view(front.data(), got).starts_with(kBlockMagic)) {
        findings.Damage("Neither a SysTrace dump nor a SysTrace segment.");
        return std::nullopt;
    }
    SysTraceHeader& header = trace.header;
    if (!ReadStruct(file, offset, header)) {
        findings.Damage("The file ends inside the block's header.");
        return std::nullopt;
    }
    if (std::string_view(header.magic, sizeof(header.magic)) != kBlockMagic) {
        findings.Damage("The dump holds no SysTrace block.");
        return std::nullopt;
    }
    if (header.version != SYSTRACE_VERSION || header.headerSize != SYSTRACE_HEADER_SIZE) {
        findings.Damage("Version " + std::to_string(header.version) + " with a header of " +
                        std::to_string(header.headerSize) +
                        " bytes is unknown to this program, which reads version " +
                        std::to_string(SYSTRACE_VERSION) + ".");
        return std::nullopt;
    }
    ClaimedEntries claimed;
    claimed.slots = trace.entryCount = EntryCount(header, findings);
    std::uint32_t count = 0;
    ClaimedRange(header, claimed, count, findings);
    ReadEntries(file, offset + sizeof(header), count, claimed, findings);
    trace.entriesRead = claimed.entries.size();
    Assembler(trace, claimed, names).Run();
    RecoverTimes(trace);
    Report(trace, findings);
    return trace;
}

SysTraceFile AssembleSysTrace(const SysTraceHeader& header, std::vector<SysTraceEntry> entries,
                              std::uint32_t firstSlot, const Names& names) {
    SysTraceFile trace;
    trace.header = header;
    trace.entryCount = header.entryCount;
    trace.entriesRead = entries.size();
    const ClaimedEntries claimed{std::move(entries), firstSlot, header.entryCount, true};
    Assembler(trace, claimed, names).Run();
    RecoverTimes(trace);
    return trace;
}

std::string FilterInWords(std::span<const std::uint32_t, SYSTRACE_FILTER_WORDS> filter, const Names& names) {
    std::string text;
    for (std::uint32_t level = 0; level < 4; ++level) {
        std::string components;
        std::uint32_t on = 0;
        for (std::uint32_t component = 0; component < 128; ++component) {
            if ((filter[level * 4 + component / 32] & (0x80000000U >> component % 32)) != 0) {
                components += on++ == 0 ? "" : ", ";
                components += names.Component(component);
            }
        }
        text += text.empty() ? "" : "; ";
        text += names.Level(level) + ": ";
        text += on == 0 ? "none" : on == 128 ? "every component" : components;
    }
    return text;
}

} // namespace NimaPost
