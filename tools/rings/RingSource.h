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
};

/// Rings in a folder: the segment, dumps of it, and those in crash logs, the best source first.
class RingSource : public FileSource<PlacedRings, Stage::kRings, EventKind::kRing> {
  public:
    using FileSource::FileSource;

    void Announce(Processes& processes) const override;
    void Place(Axis& axis) override;

  private:
    std::optional<PlacedRings> ReadContent(FolderFile& file, InputFile& input) override;
    static Certainty CertaintyOf(const PlacedRings& placed, const RingRecord& record, std::int64_t time);
    bool Tell(const Held& held, const EventVisitor& visitor) const override;
    bool TellRing(const Held& held, std::size_t index, const EventVisitor& visitor) const;

    void OrderSegments();
    void PlaceNewest(Axis& axis);
    void TakeOwners(Axis& axis);
    void State(Axis& axis) const;
    void MarkKnownRecords();
    void MarkCallbacks(Axis& axis) const;
};

} // namespace NimaPost
