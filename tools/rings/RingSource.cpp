#include "tools/rings/RingSource.h"

#include "catalogue/OwnEvents.h"
#include "tools/axis/Repeats.h"
#include "tools/base/CounterClock.h"
#include "tools/base/Hash.h"
#include "tools/rings/RingText.h"
#include "tools/rings/Segment.h"
#include "tools/words/Words.h"

#include <algorithm>
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

std::int64_t TimeOf(const PlacedRings& placed, std::size_t ring, const RingRecord& record) {
    return placed.newest[ring] - (placed.set.rings[ring].records.back().elapsed - record.elapsed);
}

} // namespace

std::optional<PlacedRings> RingSource::ReadContent(FolderFile& file, InputFile& input) {
    const std::string text = input.ReadAll(kMostTextBytes);
    auto set =
        LooksLikeRingText(text) ? ReadRingText(text, file.findings) : ReadRingSegment(input, file.findings);
    return set ? std::optional(PlacedRings{std::move(*set), {}, {}}) : std::nullopt;
}

void RingSource::Place(Axis& axis) {
    // What was dumped as text says when, so it comes first, the newest before older ones; the segment adds
    // what came after.
    const auto rank = [](const Held& held) {
        const RingSet& set = held.content.set;
        return std::pair(set.isText, set.date ? set.date->second : 0);
    };
    std::stable_sort(AllHeld().begin(), AllHeld().end(),
                     [&](const Held& a, const Held& b) { return rank(a) > rank(b); });
    PlaceNewest(axis);
    MarkKnownRecords();
    MarkCallbacks(axis);
    if (!All().empty()) {
        axis.State(
            {"rings-tied",
             "Every ring's newest record is assumed to be within a second of the moment the rings were "
             "read or written; the ring may be older by whole seconds."});
    }
}

void RingSource::PlaceNewest(Axis& axis) {
    for (auto& [file, placed] : AllHeld()) {
        std::optional<Tie> tie = axis.Newest();
        if (placed.set.ticks && placed.set.date) {
            tie = axis.TieOf(*placed.set.ticks, *placed.set.date);
            axis.SetWall();
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
        event.certainty = Certainty::Assumed();
        event.file = held.file;
        event.thread = record.data.threadId;
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
