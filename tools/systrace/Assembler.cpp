#include "tools/systrace/Assembler.h"

#include "tools/base/CounterClock.h"

#include <algorithm>
#include <array>
#include <optional>
#include <unordered_map>

namespace NimaPost {

namespace {

/// The most writers of the same event at the same moment that are plausible.
constexpr int kMostWriters = 64;
constexpr std::uint32_t kNone = 0xFFFFFFFF;
/// This many records of an event show what it looks like.
constexpr std::uint32_t kManyRecords = 20;
/// A delayed writer's next entry is claimed after a few others, not after thousands.
constexpr std::uint32_t kLongestOverlap = 64;

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
    /// What is known of a record, besides its values, while it is being put together.
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
        bool certain = false;   ///< no record of the event has a different number
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

    /// At the front of a wrapped block, remains of records that the wrap has cut are normal.
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

    /// How many continuations an event's records have: from the dictionary if it says so, otherwise what most
    /// of the uninterrupted records have. Also which threads write, which decides whether a record is
    /// complete.
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
                trace_.misnamed.push_back(first.id); // The dictionary is for another firmware.
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
            // If an event always had this many values, a record that seems to have another number had this
            // many too.
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
            // Its writers overlapped all the time, and nobody knows how many values it has.
            record.state = RecordState::kEntangled;
            ++trace_.entangled;
            return;
        }
        const bool wrongLength = event.length != kNone && record.values != event.length;
        // A record of unusual length is doubtful if it does not end in the identifier of a known thread.
        const bool strangeEnd =
            wrongLength && threadEntries_ && record.values > 0 && threads_[LastValue(index)] < 2;
        if (noThread || (wrongLength && event.certain) || strangeEnd) {
            record.state = RecordState::kTorn;
            ++trace_.torn;
        }
    }

    /// Whether the values that a short record lacks are with records of the same event that began before it
    /// ended. All of these are then entangled.
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
        // A record without any value may be an entry of the previous round that nobody has overwritten.
        if (record.state == RecordState::kTorn && record.values == 0 && clock.Started()) {
            record.elapsed = clock.Near(record.stamp);
        } else {
            record.elapsed =
                clock.Next(record.stamp, record.hasThread ? std::optional(record.thread) : std::nullopt);
        }
    }
    trace.clockBreaks = clock.Breaks();
}

} // namespace

void AssembleSysTrace(SysTraceFile& trace, const ClaimedEntries& claimed, const Names& names) {
    Assembler(trace, claimed, names).Run();
    RecoverTimes(trace);
}

} // namespace NimaPost
