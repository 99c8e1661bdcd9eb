#include "tools/systrace/SysTraceSource.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Hash.h"

#include <algorithm>
#include <string>
#include <unordered_set>
#include <utility>

namespace NimaPost {

namespace {

std::uint64_t HashOf(const SysTraceRecord& record) {
    return Mix(Mix(Mix(1, record.slot), record.id), record.stamp);
}

std::uint64_t ClaimsOf(const SysTraceFile& trace) {
    const auto wraps = static_cast<std::uint64_t>(std::max(trace.header.wrapCount, 0));
    return wraps * trace.entryCount + (trace.header.writeIndex & (trace.entryCount - 1));
}

} // namespace

SysTraceSource::SysTraceSource(SourceSet& set)
    : Source(Stage::kTraces, EventKind::kBinary), names_(set.Dictionary()) {}

void SysTraceSource::Read(FolderFile& file, InputFile& input) {
    auto trace = ReadSysTrace(input, names_, file.findings);
    file.unusable = !trace;
    if (trace) {
        traces_.push_back({file.index, std::move(*trace), 0, {}});
    }
}

void SysTraceSource::Place(Axis& axis) {
    std::stable_sort(traces_.begin(), traces_.end(),
                     [](const Placed& a, const Placed& b) { return ClaimsOf(a.trace) > ClaimsOf(b.trace); });
    for (Placed& placed : traces_) {
        const auto& records = placed.trace.records;
        if (records.empty()) {
            continue;
        }
        const SysTraceRecord& last = records.back();
        if (!axis.Newest()) {
            axis.SetNewest({last.stamp, last.elapsed});
        }
        const Tie& tie = *axis.Newest();
        placed.origin = tie.time + NearestStep(tie.counter, last.stamp) - last.elapsed;
    }
    MarkKnownRecords();
    if (!traces_.empty()) {
        axis.State(
            {"trace-tied",
             std::string("The binary trace's newest record is assumed to be within half a second of ") +
                 (axis.Crash() ? "the crash log's head" : "the latest dated record") +
                 "; earlier times are the latest possible."});
    }
}

/// Dumps repeat what the segment holds, and each other. Every record is shown once, from the source that has
/// most records.
void SysTraceSource::MarkKnownRecords() {
    std::unordered_set<std::uint64_t> seen;
    for (Placed& placed : traces_) {
        placed.known.reserve(placed.trace.records.size());
        for (const SysTraceRecord& record : placed.trace.records) {
            placed.known.push_back(traces_.size() > 1 && !seen.insert(HashOf(record)).second);
        }
    }
}

bool SysTraceSource::ForEach(const EventVisitor& visitor) const {
    return std::all_of(traces_.begin(), traces_.end(),
                       [&](const Placed& placed) { return Tell(placed, visitor); });
}

bool SysTraceSource::Tell(const Placed& placed, const EventVisitor& visitor) const {
    std::string level;
    std::string component;
    std::string text;
    for (std::size_t i = 0; i < placed.trace.records.size(); ++i) {
        if (placed.known[i]) {
            continue;
        }
        const SysTraceRecord& record = placed.trace.records[i];
        level = names_.Level(record.Level());
        component = names_.Component(record.Component());
        text.clear();
        TimelineEvent event;
        event.arguments = placed.trace.ValuesOf(record);
        AppendTraceEvent(text, names_, record.Component(), record.Event(), event.arguments, record.state);
        event.kind = EventKind::kBinary;
        event.time = placed.origin + record.elapsed;
        event.certainty = Certainty::Assumed();
        event.file = placed.file;
        event.thread = record.hasThread ? std::optional(record.thread) : std::nullopt;
        event.level = level;
        event.name = component;
        event.text = text;
        event.mark = record.state == RecordState::kWhole ? std::string_view() : StateName(record.state);
        if (!visitor(event)) {
            return false;
        }
    }
    return true;
}

} // namespace NimaPost
