#include "tools/systrace/Drafts.h"

#include <algorithm>
#include <array>

namespace NimaPost {

namespace {

/// This many records of an event show what it looks like.
constexpr std::uint32_t kManyRecords = 20;

} // namespace

Drafts::Drafts(SysTraceFile& trace, const ClaimedEntries& claimed, const Names& names)
    : trace_(trace),
      claimed_(claimed),
      names_(names),
      threadEntries_((trace.header.flags & SYSTRACE_FLAG_THREAD_RECORDS) != 0) {
    Gather();
    LayOutValues();
    FindWrapReach();
    LearnLengths();
    LearnThreads();
}

void Drafts::Gather() {
    const auto& entries = claimed_.entries;
    owner_.assign(entries.size(), kNone);
    trace_.records.reserve(entries.size() / 2);
    drafts_.reserve(entries.size() / 2);
    std::uint32_t cachedId = kNone;
    Event* event = nullptr;
    for (std::uint32_t at = 0; at < entries.size(); ++at) {
        const SysTraceEntry& entry = entries[at];
        if (entry.id == 0 && entry.value == 0) {
            neverStored_.push_back(at);
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
            event->strays.push_back(at);
        } else {
            Draft& draft = drafts_[event->lastRecord];
            draft.contiguous = draft.contiguous && draft.last + 1 == at;
            draft.last = at;
            ++trace_.records[event->lastRecord].values;
            owner_[at] = event->lastRecord;
        }
    }
}

void Drafts::Open(Event& event, std::uint32_t at, const SysTraceEntry& entry) {
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

void Drafts::LayOutValues() {
    std::uint32_t sum = 0;
    for (SysTraceRecord& record : trace_.records) {
        record.firstValue = sum;
        sum += record.values;
        record.values = 0;
    }
    trace_.values.resize(sum);
    positions_.resize(sum);
    for (std::uint32_t at = 0; at < owner_.size(); ++at) {
        if (owner_[at] != kNone) {
            SysTraceRecord& record = trace_.records[owner_[at]];
            positions_[record.firstValue + record.values] = at;
            trace_.values[record.firstValue + record.values++] = claimed_.entries[at].value;
        }
    }
}

void Drafts::FindWrapReach() {
    if (!claimed_.wrapped) {
        return;
    }
    wrapReach_ = static_cast<std::uint32_t>(claimed_.entries.size());
    CounterClock clock;
    for (std::uint32_t i = 0; i < trace_.records.size(); ++i) {
        const SysTraceRecord& record = trace_.records[i];
        if (record.values > 0 && clock.Next(record.stamp, std::nullopt) > kLongestHold) {
            wrapReach_ = std::max(drafts_[i].position, kLongestOverlap);
            return;
        }
    }
}

std::uint32_t Drafts::LastValue(std::uint32_t record) const {
    const SysTraceRecord& of = trace_.records[record];
    return trace_.values[of.firstValue + of.values - 1];
}

bool Drafts::IsKnownThread(std::uint32_t value) const {
    const auto known = threads_.find(value);
    return known != threads_.end() && known->second > 1;
}

bool Drafts::Wrote(std::uint32_t thread, std::uint32_t after, std::uint32_t before) const {
    const auto written = writes_.find(thread);
    if (written == writes_.end()) {
        return false;
    }
    const auto first = std::lower_bound(written->second.begin(), written->second.end(), after);
    return first != written->second.end() && *first < before;
}

/// How many continuations an event's records have: from the dictionary if it says so, otherwise what most of
/// the uninterrupted records have.
void Drafts::LearnLengths() {
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
        const std::uint32_t length = static_cast<std::uint32_t>(*name->arguments) + (threadEntries_ ? 1 : 0);
        if (event.certain && event.length != length) {
            trace_.misnamed.push_back(first.id); // The dictionary is for another firmware.
        } else {
            event.length = length;
            event.certain = true;
        }
    }
}

void Drafts::LearnLength(Event& event) {
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
        // If an event always had this many values, a record that seems to have another number had this many
        // too.
        event.certain = records >= kManyRecords && *most + records / kManyRecords >= records;
    }
}

/// Which threads write, which decides whether a record is complete, and where.
void Drafts::LearnThreads() {
    if (!threadEntries_) {
        return;
    }
    for (const auto& [id, event] : events_) {
        for (std::uint32_t i = event.firstRecord; i != kNone; i = drafts_[i].nextOfEvent) {
            if (trace_.records[i].values == 0) {
                continue;
            }
            const std::uint32_t last = LastValue(i);
            ++threads_[last];
            if (drafts_[i].contiguous &&
                (event.length == kNone || trace_.records[i].values == event.length)) {
                writes_[last].push_back(drafts_[i].position);
            }
        }
    }
    for (auto& [thread, positions] : writes_) {
        std::sort(positions.begin(), positions.end());
    }
}

} // namespace NimaPost
