#pragma once

#include "tools/axis/Owners.h"
#include "tools/axis/Source.h"
#include "tools/rings/Rings.h"

#include <cstdint>
#include <optional>
#include <utility>
#include <vector>

namespace NimaPost {

/// The rings of one file, and when each one's newest record was written.
struct PlacedRings {
    explicit PlacedRings(RingSet rings) : set(std::move(rings)) {}

    RingSet set;
    Findings* findings = nullptr;     ///< of a segment's file, where its order is not judged yet
    std::vector<std::int64_t> newest; ///< of each ring, on the axis
    /// Records that a better source already has, by ring and position.
    std::vector<std::vector<bool>> known;
    Certainty certainty = Certainty::Assumed();
    std::optional<std::int64_t> head; ///< of a dump or crash log, on the axis
    std::vector<Owners> owners;       ///< by the processes of the set
    std::optional<Tie> headTie;
};

/// Rings in a folder: the segment, dumps of it, and those in crash logs, the best source first.
class RingSource : public FileSource<PlacedRings, Stage::kRings, EventKind::kRing> {
  public:
    using FileSource::FileSource;

    void Announce(Processes& processes) const override;
    void Place(Axis& axis) override;

    /// The heads of crash logs, by their files, the oldest first. To be called before.
    void NoteHeads(std::vector<std::pair<std::size_t, Tie>> heads) { heads_ = std::move(heads); }
    /// The process that wrote this file as text.
    std::optional<std::size_t> WriterOf(std::size_t file) const;

  private:
    std::optional<PlacedRings> ReadContent(FolderFile& file, InputFile& input) override;
    static Certainty CertaintyOf(const PlacedRings& placed, const RingRecord& record, std::int64_t time);
    bool Tell(const Held& held, const EventVisitor& visitor) const override;
    bool TellRing(const Held& held, std::size_t index, const EventVisitor& visitor) const;

    void OrderSegments();
    Tie TieOfHead(const Held& held, const Axis& axis) const;
    void PlaceNewest(Axis& axis);
    std::vector<Held*> OldestFirst();
    void TakeOwners(Axis& axis);
    void State(Axis& axis) const;
    void MarkKnownRecords();
    void MarkCallbacks(Axis& axis) const;

    std::vector<std::pair<std::size_t, Tie>> heads_;
};

} // namespace NimaPost
