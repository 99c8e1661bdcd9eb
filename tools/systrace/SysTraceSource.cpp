#include "tools/systrace/SysTraceSource.h"

#include "tools/axis/Repeats.h"
#include "tools/base/CounterClock.h"
#include "tools/base/Hash.h"
#include "tools/systrace/SysTrace.h"

#include <algorithm>
#include <string>
#include <utility>

namespace NimaPost {

namespace {

struct PlacedTrace {
    SysTraceFile trace;
    std::int64_t origin = 0; ///< the start of elapsed time, on the axis
    /// Records that a fuller source already has.
    std::vector<bool> known;
};

std::uint64_t HashOf(const SysTraceRecord& record) {
    return Mix(Mix(Mix(1, record.slot), record.id), record.stamp);
}

std::uint64_t ClaimsOf(const SysTraceFile& trace) {
    const auto wraps = static_cast<std::uint64_t>(std::max(trace.header.wrapCount, 0));
    return wraps * trace.entryCount + (trace.header.writeIndex & (trace.entryCount - 1));
}

class SysTraceSource : public FileSource<PlacedTrace, Stage::kTraces, EventKind::kBinary> {
  public:
    using FileSource::FileSource;

    void Place(Axis& axis) override {
        // The fullest first.
        std::stable_sort(AllHeld().begin(), AllHeld().end(), [](const Held& a, const Held& b) {
            return ClaimsOf(a.content.trace) > ClaimsOf(b.content.trace);
        });
        for (auto& [file, placed] : AllHeld()) {
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
        if (!All().empty()) {
            axis.State(
                {"trace-tied",
                 std::string("The binary trace's newest record is assumed to be within half a second of ") +
                     (axis.Crash() ? "the crash log's head" : "the latest dated record") +
                     "; earlier times are the latest possible."});
        }
    }

  private:
    std::optional<PlacedTrace> ReadContent(FolderFile& file, InputFile& input) override {
        auto trace = ReadSysTrace(input, Set().Dictionary(), file.findings);
        return trace ? std::optional(PlacedTrace{std::move(*trace), 0, {}}) : std::nullopt;
    }

    bool Tell(const Held& held, const EventVisitor& visitor) const override {
        const Names& names = Set().Dictionary();
        const PlacedTrace& placed = held.content;
        std::string level;
        std::string component;
        std::string text;
        for (std::size_t i = 0; i < placed.trace.records.size(); ++i) {
            if (placed.known[i]) {
                continue;
            }
            const SysTraceRecord& record = placed.trace.records[i];
            level = names.Level(record.Level());
            component = names.Component(record.Component());
            text.clear();
            TimelineEvent event;
            event.arguments = placed.trace.ValuesOf(record);
            AppendTraceEvent(text, names, record.Component(), record.Event(), event.arguments, record.state);
            event.kind = EventKind::kBinary;
            event.time = placed.origin + record.elapsed;
            event.certainty = Certainty::Assumed();
            event.file = held.file;
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

    void MarkKnownRecords() {
        Repeats repeats(All().size());
        for (auto& [file, placed] : AllHeld()) {
            placed.known.reserve(placed.trace.records.size());
            for (const SysTraceRecord& record : placed.trace.records) {
                placed.known.push_back(repeats.Has(HashOf(record)));
            }
        }
    }
};

} // namespace

Source& BinaryTraces(SourceSet& set) {
    return set.Get<SysTraceSource>();
}

} // namespace NimaPost
