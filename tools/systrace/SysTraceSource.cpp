#include "tools/systrace/SysTraceSource.h"

#include "catalogue/OwnEvents.h"
#include "tools/axis/Owners.h"
#include "tools/axis/Repeats.h"
#include "tools/base/BackupName.h"
#include "tools/base/CounterClock.h"
#include "tools/base/Hash.h"
#include "tools/systrace/RecordText.h"
#include "tools/systrace/SysTrace.h"

#include <algorithm>
#include <functional>
#include <iterator>
#include <map>
#include <string>
#include <utility>

namespace NimaPost {

namespace {

constexpr std::uint64_t kMostBackups = 10;

/// The records of one process, or of several that shared the trace.
struct PlacedStretch {
    std::int64_t origin = 0; ///< the start of elapsed time, on the axis
    Owners owners;
};

struct PlacedTrace {
    SysTraceFile trace;
    BackupName name;
    std::vector<PlacedStretch> stretches;
    Certainty certainty = Certainty::Assumed();
    bool fitsHead = false;   ///< it seems to be the dump of the crash that it is tied to
    std::vector<bool> known; ///< records that a fuller source already has

    PlacedTrace(SysTraceFile file, const std::string& plainName)
        : trace(std::move(file)), name(SplitBackupName(plainName, kMostBackups)) {}
};

/// The threads of each stretch.
Succession ThreadsOf(const SysTraceFile& trace) {
    Succession threads(trace.stretches.size());
    for (const SysTraceRecord& record : trace.records) {
        if (record.hasThread) {
            threads[record.stretch].insert(record.thread);
        }
    }
    return threads;
}

/// Whether a dump fits the crash whose log has this head, for which it was then taken. One of another moment
/// does in one case of two, since counters tell only the place within a second.
bool FitsHead(const SysTraceFile& trace, const Tie& head) {
    using Nima::Catalogue::IdOf;
    using Nima::Catalogue::OwnTraceEvent;
    constexpr std::size_t kLastRecords = 64;
    const std::size_t count = std::min(trace.records.size(), kLastRecords);
    return trace.isDump &&
           std::any_of(trace.records.end() - static_cast<std::ptrdiff_t>(count), trace.records.end(),
                       [&](const SysTraceRecord& record) {
                           const std::int64_t before = NearestStep(record.stamp, head.counter);
                           return record.id == IdOf(OwnTraceEvent::kFileDumpStarts) && before >= 0;
                       });
}

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

    /// A dump is older than those with lower numbers, and than what is still in memory.
    void Announce(Processes& processes) const override {
        std::map<std::string, std::map<std::uint64_t, const PlacedTrace*, std::greater<>>> dumps;
        Succession ofSegments;
        for (const auto& [file, placed] : All()) {
            if (placed.trace.isDump) {
                dumps[placed.name.base].emplace(placed.name.number, &placed);
            } else {
                Append(ofSegments, placed.trace);
            }
        }
        dumps.try_emplace(std::string());
        for (const auto& [base, backups] : dumps) {
            Succession succession;
            for (const auto& [number, placed] : backups) {
                Append(succession, placed->trace);
            }
            succession.insert(succession.end(), ofSegments.begin(), ofSegments.end());
            processes.Announce(std::move(succession));
        }
    }

    void Place(Axis& axis) override {
        // The fullest first.
        std::stable_sort(AllHeld().begin(), AllHeld().end(), [](const Held& a, const Held& b) {
            return ClaimsOf(a.content.trace) > ClaimsOf(b.content.trace);
        });
        std::optional<Tie> first;
        bool fits = true;
        for (auto& [file, placed] : AllHeld()) {
            if (placed.trace.records.empty()) {
                continue;
            }
            const SysTraceRecord& last = placed.trace.records.back();
            if (!axis.Newest()) {
                axis.SetNewest({last.stamp, last.elapsed});
            }
            const Tie tie = *axis.TieOfFile(file);
            first = first ? first : std::optional(tie);
            placed.certainty.originLater = tie.later;
            if (tie.kind == TieKind::kHead && FitsHead(placed.trace, tie)) {
                placed.fitsHead = true;
            } else {
                fits = false;
            }
            PlaceStretches(axis.AllProcesses(), placed, tie);
        }
        // The crash's own dump first, whoever wrote the segment afterwards.
        std::stable_partition(AllHeld().begin(), AllHeld().end(),
                              [](const Held& held) { return held.content.fitsHead; });
        MarkKnownRecords();
        if (first) {
            axis.State({"trace-tied", Statement(*first, fits)});
        }
    }

  private:
    std::optional<PlacedTrace> ReadContent(FolderFile& file, InputFile& input) override {
        auto trace = ReadSysTrace(input, Set().Dictionary(), file.findings);
        return trace ? std::optional(PlacedTrace(std::move(*trace), file.plainName)) : std::nullopt;
    }

    static void Append(Succession& succession, const SysTraceFile& trace) {
        Succession threads = ThreadsOf(trace);
        succession.insert(succession.end(), std::make_move_iterator(threads.begin()),
                          std::make_move_iterator(threads.end()));
    }

    /// The last one is tied. The others ended before the next began, or with their process if that is dated.
    static void PlaceStretches(Processes& processes, PlacedTrace& placed, const Tie& tie) {
        const auto& records = placed.trace.records;
        const auto& firsts = placed.trace.stretches;
        Succession threads = ThreadsOf(placed.trace);
        std::vector<ProcessFacts> facts(firsts.size());
        placed.stretches.resize(firsts.size());
        std::int64_t origin =
            tie.time + NearestStep(tie.counter, records.back().stamp) - records.back().elapsed;
        for (std::size_t i = firsts.size(); i-- > 0;) {
            const auto end = i + 1 < firsts.size() ? firsts[i + 1] : records.size();
            const std::int64_t last = records[end - 1].elapsed;
            facts[i].threads = std::move(threads[i]);
            const auto known = processes.WithAnyOf(facts[i].threads);
            const auto ended = known ? processes[*known].last : std::nullopt;
            // The newest line may be another process's.
            const bool later = tie.kind == TieKind::kLine || i + 1 < firsts.size();
            if (later && ended && *ended < origin + last - kSecond) {
                origin = *ended - last;
            }
            const auto next = known ? processes[*known].next : std::nullopt;
            origin = std::min(origin, next ? *next - last : origin);
            placed.stretches[i].origin = origin;
            facts[i].first = origin + records[firsts[i]].elapsed;
            facts[i].last = origin + last;
        }
        for (std::size_t i = 0; i < firsts.size(); ++i) {
            placed.stretches[i].owners = Owners(processes, facts[i]);
        }
    }

    static std::string Statement(const Tie& tie, bool fits) {
        std::string text =
            "The binary trace has no dates. Its newest record is assumed to be within half a second of ";
        text += tie.kind == TieKind::kHead   ? "the crash log's or dump's head"
                : tie.kind == TieKind::kLine ? "the last dated line of the logs"
                : tie.kind == TieKind::kCollected
                    ? "the moment at which the files were collected"
                    : "the newest line or record of all, none of which is dated";
        text += ", and earlier records count back from it";
        if (tie.later > 0) {
            text += "; that moment itself may be up to " + std::to_string(tie.later / 1'000'000) +
                    " ms later, since its date is cut";
        }
        text += fits
                    ? ". Its end fits a dump that was taken for that head; if it was, nothing in it is later "
                      "than the head. It may be earlier by whole seconds."
                : tie.kind == TieKind::kCollected ? ". It may be earlier by whole seconds."
                : tie.kind == TieKind::kHead
                    ? ". It may be earlier by whole seconds, or later by any time if a process wrote on "
                      "afterwards."
                    : ". It may be earlier by whole seconds, and later by any time: a process that is killed "
                      "loses the lines that its log has buffered, but not the trace.";
        return text;
    }

    bool Tell(const Held& held, const EventVisitor& visitor) const override {
        const PlacedTrace& placed = held.content;
        TraceEvents events(Set().Dictionary());
        for (std::size_t i = 0; i < placed.trace.records.size(); ++i) {
            if (placed.known[i]) {
                continue;
            }
            const SysTraceRecord& record = placed.trace.records[i];
            TimelineEvent event = events.Of(placed.trace, record);
            const PlacedStretch& stretch = placed.stretches[record.stretch];
            event.time = stretch.origin + record.elapsed;
            event.certainty = placed.certainty;
            event.file = held.file;
            event.process = stretch.owners.ProcessOf(event.thread);
            event.boot = stretch.owners.BootOf(event.thread);
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
