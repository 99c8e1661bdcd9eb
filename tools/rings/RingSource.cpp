#include "tools/rings/RingSource.h"

#include "catalogue/OwnEvents.h"
#include "tools/axis/Repeats.h"
#include "tools/base/CounterClock.h"
#include "tools/base/Hash.h"
#include "tools/rings/RingProcesses.h"
#include "tools/rings/RingText.h"
#include "tools/rings/Seam.h"
#include "tools/rings/Segment.h"
#include "tools/words/Words.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>

namespace NimaPost {

namespace {

std::uint64_t HashOf(const Ring& ring, const RingRecord& record) {
    std::uint64_t hash = Mix(Mix(2, ring.index), static_cast<std::uint64_t>(record.data.timestamp));
    hash = Mix(hash, record.data.threadId);
    for (const std::uint32_t word : record.data.words) {
        hash = Mix(hash, word);
    }
    return hash;
}

/// A record that the library writes before it hands an event to the host.
bool IsCallback(const RingBufferData& data) {
    return data.words[0] == CodeOf(Nima::Catalogue::OwnRingEvent::kEventCallback) && data.words[3] == 0;
}

bool IsOrderedBy(const RingSet& dump, Ring& ring) {
    const auto same = std::find_if(dump.rings.begin(), dump.rings.end(),
                                   [&](const Ring& each) { return each.index == ring.index; });
    return dump.isText && same != dump.rings.end() && OrderByDump(ring, *same);
}

std::int64_t TimeOf(const PlacedRings& placed, std::size_t ring, const RingRecord& record) {
    return placed.newest[ring] - (placed.set.rings[ring].records.back().elapsed - record.elapsed);
}

} // namespace

std::optional<PlacedRings> RingSource::ReadContent(FolderFile& file, InputFile& input) {
    const std::string text = input.ReadAll(kMostTextBytes);
    auto set =
        LooksLikeRingText(text) ? ReadRingText(text, file.findings) : ReadRingSegment(input, file.findings);
    if (!set) {
        return std::nullopt;
    }
    PlacedRings placed(std::move(*set));
    if (placed.set.isText) {
        RemarkOnOrder(placed.set, file.findings);
    } else {
        placed.findings = &file.findings;
    }
    return placed;
}

void RingSource::Announce(Processes& processes) const {
    for (const auto& [file, placed] : All()) {
        processes.Announce(ThreadsOf(placed.set));
    }
}

void RingSource::Place(Axis& axis) {
    // A text dump says when it was made, so dumps come first, newer before older; the segment adds what came
    // later.
    const auto rank = [](const Held& held) {
        const RingSet& set = held.content.set;
        return std::pair(set.isText, set.date ? set.date->second : 0);
    };
    std::stable_sort(AllHeld().begin(), AllHeld().end(),
                     [&](const Held& a, const Held& b) { return rank(a) > rank(b); });
    OrderSegments();
    PlaceNewest(axis);
    MarkKnownRecords();
    MarkCallbacks(axis);
    TakeOwners(axis);
    State(axis);
}

void RingSource::State(Axis& axis) const {
    const auto hasHead = [](const Held& held) { return held.content.set.ticks && held.content.set.date; };
    const auto heads = static_cast<std::size_t>(std::count_if(All().begin(), All().end(), hasHead));
    std::string text;
    if (heads > 0) {
        std::int64_t later = 0;
        for (const Held& held : All()) {
            later = std::max(later, hasHead(held) ? held.content.certainty.originLater : 0);
        }
        text =
            "The newest record of every ring in a dump or crash log is assumed to be within a second before "
            "its head";
        text += later > 0 ? " (which may be up to " + std::to_string(later / 1'000'000) +
                                " ms later, since its date is cut)"
                          : "";
        text +=
            "; older ones count back from it. All may be earlier by whole seconds, or later, but none is "
            "after its head.";
    }
    if (heads < All().size()) {
        text += text.empty() ? "" : " ";
        text +=
            "A ring segment has no dates. The newest record of every ring is assumed to be within half a "
            "second "
            "of ";
        const auto segment = std::find_if_not(All().begin(), All().end(), hasHead);
        const auto tie = axis.TieOfFile(segment->file);
        const TieKind kind = tie ? tie->kind : TieKind::kStart;
        text += kind == TieKind::kCollected
                    ? "the moment at which the files were collected. It may be earlier by whole seconds."
                : kind == TieKind::kHead
                    ? "the crash log's or dump's head. It may be earlier by whole seconds, or later by any "
                      "time if a process wrote on afterwards."
                : kind == TieKind::kLine
                    ? "the last dated line of the logs. It may be earlier by whole seconds, and "
                      "later by any time: a process that is killed loses the lines that its "
                      "log has buffered, but not the rings."
                    : "the newest line or record of all, none of which is dated. It may be "
                      "earlier or later by whole seconds.";
    }
    if (!text.empty()) {
        axis.State({"rings-tied", text});
    }
}

/// The segment is the newest.
std::vector<RingSource::Held*> RingSource::OldestFirst() {
    std::vector<Held*> ordered;
    std::map<std::size_t, Held*> byFile;
    std::for_each(AllHeld().rbegin(), AllHeld().rend(), [&](Held& held) {
        byFile[held.file] = &held;
        ordered.push_back(&held);
    });
    std::stable_partition(ordered.begin(), ordered.end(),
                          [](const Held* held) { return held->content.set.isText; });
    auto next = heads_.begin();
    for (Held*& held : ordered) {
        if (std::any_of(heads_.begin(), heads_.end(),
                        [&](const auto& head) { return head.first == held->file; })) {
            held = byFile.at((next++)->first);
        }
    }
    return ordered;
}

std::optional<std::size_t> RingSource::WriterOf(std::size_t file) const {
    const auto found =
        std::find_if(All().begin(), All().end(), [&](const Held& held) { return held.file == file; });
    const auto thread = found != All().end() ? found->content.set.Writer() : std::nullopt;
    return thread ? found->content.owners.back().WriterOf(*thread) : std::nullopt;
}

void RingSource::TakeOwners(Axis& axis) {
    for (Held* const held : OldestFirst()) {
        PlacedRings& placed = held->content;
        std::vector<ProcessFacts> facts(placed.set.processes);
        for (std::size_t r = 0; r < placed.set.rings.size(); ++r) {
            for (const RingRecord& record : placed.set.rings[r].records) {
                ProcessFacts& process = facts.at(record.process);
                const std::int64_t time = TimeOf(placed, r, record);
                process.threads.insert(record.data.threadId);
                process.first = std::min(process.first.value_or(time), time);
                process.last = std::max(process.last.value_or(time), time);
            }
        }
        facts.back().bootCycle = placed.set.bootCycle;
        facts.back().notOf = placed.headTie ? placed.headTie->notOf : std::nullopt;
        for (const ProcessFacts& process : facts) {
            placed.owners.emplace_back(axis.AllProcesses(), process);
        }
    }
}

/// A dump or crash log has a head that tells its newest records; whatever a segment has beyond them is newer.
void RingSource::OrderSegments() {
    for (auto& [file, placed] : AllHeld()) {
        for (Ring& ring : placed.set.rings) {
            if (!placed.set.isText && placed.set.processes == 1) {
                std::any_of(All().begin(), All().end(),
                            [&](const Held& held) { return IsOrderedBy(held.content.set, ring); });
            }
        }
        if (placed.findings != nullptr) {
            RemarkOnOrder(placed.set, *placed.findings);
        }
    }
}

Tie RingSource::TieOfHead(const Held& held, const Axis& axis) const {
    const auto known =
        std::find_if(heads_.begin(), heads_.end(), [&](const auto& head) { return head.first == held.file; });
    const RingSet& set = held.content.set;
    return known != heads_.end() ? known->second : axis.TieOf({*set.ticks, *set.date, set.Writer(), {}});
}

void RingSource::PlaceNewest(Axis& axis) {
    for (Held& held : AllHeld()) {
        auto& [file, placed] = held;
        std::optional<Tie> tie = axis.TieOfFile(file);
        if (placed.set.ticks && placed.set.date) {
            tie = placed.headTie = TieOfHead(held, axis);
            axis.SetWall();
            placed.head = tie->time;
            if (!axis.Newest()) {
                axis.SetNewest(*tie);
            }
        }
        for (const Ring& ring : placed.set.rings) {
            std::int64_t newest = 0;
            if (!ring.records.empty()) {
                const RingRecord& last = ring.records.back();
                if (!tie) {
                    tie = Tie{last.data.timestamp, last.elapsed};
                    axis.SetNewest(*tie);
                }
                newest = tie->time + (placed.set.ticks ? -BeforeHead(last.data.timestamp, tie->counter)
                                                       : NearestStep(tie->counter, last.data.timestamp));
            }
            placed.newest.push_back(newest);
        }
        placed.certainty.originLater = tie ? tie->later : 0;
    }
}

void RingSource::MarkKnownRecords() {
    Repeats repeats(All().size());
    for (auto& [file, placed] : AllHeld()) {
        for (const Ring& ring : placed.set.rings) {
            std::vector<bool>& known = placed.known.emplace_back();
            for (const RingRecord& record : ring.records) {
                known.push_back(repeats.Has(HashOf(ring, record)));
            }
        }
    }
}

void RingSource::MarkCallbacks(Axis& axis) const {
    for (const auto& [file, placed] : All()) {
        for (std::size_t r = 0; r < placed.set.rings.size(); ++r) {
            const Ring& ring = placed.set.rings[r];
            for (std::size_t i = 0; ring.index == Nima::Catalogue::kOwnRing && i < ring.records.size(); ++i) {
                const RingRecord& record = ring.records[i];
                if (!placed.known[r][i] && IsCallback(record.data)) {
                    axis.Add(
                        CallbackMark{record.data.words[1], record.data.words[2], TimeOf(placed, r, record)});
                }
            }
        }
    }
}

/// What the process that wrote a dump has in it was written before the dump ended, however its rings are
/// ordered. An earlier process may have been of another boot, whose wall clock ran ahead.
Certainty RingSource::CertaintyOf(const PlacedRings& placed, const RingRecord& record, std::int64_t time) {
    Certainty certainty = placed.certainty;
    const bool ofWriter = record.process + std::size_t{1} == placed.set.processes &&
                          placed.owners[record.process].ProcessOf(record.data.threadId) ==
                              placed.owners.back().ProcessOf(placed.set.Writer());
    if (placed.head && ofWriter) {
        certainty.later = std::max<std::int64_t>(*placed.head + kDumpTakes - time, 0) / kSecond + 1;
        certainty.later += placed.headTie->within;
        certainty.premise = Certainty::Premise::kClockNotSet;
    }
    return certainty;
}

bool RingSource::Tell(const Held& held, const EventVisitor& visitor) const {
    for (std::size_t ring = 0; ring < held.content.set.rings.size(); ++ring) {
        if (!TellRing(held, ring, visitor)) {
            return false;
        }
    }
    return true;
}

bool RingSource::TellRing(const Held& held, std::size_t index, const EventVisitor& visitor) const {
    const PlacedRings& placed = held.content;
    const Ring& ring = placed.set.rings[index];
    std::string text;
    for (std::size_t i = 0; i < ring.records.size(); ++i) {
        if (placed.known[index][i]) {
            continue;
        }
        const RingRecord& record = ring.records[i];
        text.clear();
        AppendRingEvent(text, Set().Dictionary(), ring.name, record.data);
        TimelineEvent event;
        event.kind = EventKind::kRing;
        event.time = TimeOf(placed, index, record);
        event.certainty = CertaintyOf(placed, record, *event.time);
        event.file = held.file;
        event.thread = record.data.threadId;
        event.process = placed.owners[record.process].ProcessOf(event.thread);
        event.boot = placed.owners[record.process].BootOf(event.thread);
        event.name = ring.name;
        event.text = text;
        event.arguments = std::span(record.data.words).subspan(1);
        if (!visitor(event)) {
            return false;
        }
    }
    return true;
}

} // namespace NimaPost
