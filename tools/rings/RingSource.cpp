#include "tools/rings/RingSource.h"

#include "catalogue/OwnEvents.h"
#include "tools/base/CounterClock.h"
#include "tools/base/Hash.h"
#include "tools/rings/RingText.h"
#include "tools/rings/Segment.h"
#include "tools/words/Words.h"

#include <algorithm>
#include <string>
#include <unordered_set>
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

} // namespace

RingSource::RingSource(SourceSet& set) : Source(Stage::kRings, EventKind::kRing), names_(set.Dictionary()) {}

void RingSource::Read(FolderFile& file, InputFile& input) {
    const std::string text = input.ReadAll(kMostTextBytes);
    auto set =
        LooksLikeRingText(text) ? ReadRingText(text, file.findings) : ReadRingSegment(input, file.findings);
    file.unusable = !set;
    if (set) {
        Take(file.index, std::move(*set));
    }
}

void RingSource::Take(std::size_t file, RingSet set) {
    rings_.push_back({file, std::move(set), {}, {}});
}

void RingSource::Place(Axis& axis) {
    // A text dump says when it was made, so dumps come first, newer before older; the segment adds what came
    // later.
    std::stable_sort(rings_.begin(), rings_.end(), [](const Placed& x, const Placed& y) {
        return std::pair(x.set.isText, x.set.date ? x.set.date->second : 0) >
               std::pair(y.set.isText, y.set.date ? y.set.date->second : 0);
    });
    PlaceNewest(axis);
    MarkKnownRecords();
    MarkCallbacks(axis);
    if (!rings_.empty()) {
        axis.State(
            {"rings-tied",
             "Every ring's newest record is assumed to be within a second of the moment the rings were "
             "read or written; the ring may be older by whole seconds."});
    }
}

void RingSource::PlaceNewest(Axis& axis) {
    for (Placed& placed : rings_) {
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

/// Dumps repeat what the segment holds, and each other. Every record is shown once, from the best source.
void RingSource::MarkKnownRecords() {
    std::unordered_set<std::uint64_t> seen;
    for (Placed& placed : rings_) {
        for (const Ring& ring : placed.set.rings) {
            std::vector<bool>& known = placed.known.emplace_back();
            for (const RingRecord& record : ring.records) {
                known.push_back(rings_.size() > 1 && !seen.insert(HashOf(ring, record)).second);
            }
        }
    }
}

void RingSource::MarkCallbacks(Axis& axis) const {
    for (const Placed& placed : rings_) {
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

std::int64_t RingSource::TimeOf(const Placed& placed, std::size_t ring, const RingRecord& record) {
    return placed.newest[ring] - (placed.set.rings[ring].records.back().elapsed - record.elapsed);
}

bool RingSource::ForEach(const EventVisitor& visitor) const {
    for (const Placed& placed : rings_) {
        for (std::size_t ring = 0; ring < placed.set.rings.size(); ++ring) {
            if (!Tell(placed, ring, visitor)) {
                return false;
            }
        }
    }
    return true;
}

bool RingSource::Tell(const Placed& placed, std::size_t index, const EventVisitor& visitor) const {
    const Ring& ring = placed.set.rings[index];
    std::string text;
    for (std::size_t i = 0; i < ring.records.size(); ++i) {
        if (placed.known[index][i]) {
            continue;
        }
        const RingRecord& record = ring.records[i];
        text.clear();
        AppendRingEvent(text, names_, ring.name, record.data);
        TimelineEvent event;
        event.kind = EventKind::kRing;
        event.time = TimeOf(placed, index, record);
        event.certainty = Certainty::Assumed();
        event.file = placed.file;
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
