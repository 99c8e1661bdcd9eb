#pragma once

#include "tools/axis/Source.h"
#include "tools/rings/Rings.h"

#include <cstdint>
#include <vector>

namespace NimaPost {

/// Rings in a folder: the segment, dumps of it, and those in crash logs.
class RingSource : public Source {
  public:
    explicit RingSource(SourceSet& set);

    void Read(FolderFile& file, InputFile& input) override;
    void Place(Axis& axis) override;
    bool ForEach(const EventVisitor& visitor) const override;

    /// Takes rings from another kind of file.
    void Take(std::size_t file, RingSet set);

    /// The rings of one file, and when each one's newest record was written.
    struct Placed {
        std::size_t file;
        RingSet set;
        std::vector<std::int64_t> newest; ///< of each ring, on the axis
        /// Records that a better source already has, by ring and position.
        std::vector<std::vector<bool>> known;
    };
    /// All rings, the best source first.
    const std::vector<Placed>& All() const { return rings_; }

  private:
    static std::int64_t TimeOf(const Placed& placed, std::size_t ring, const RingRecord& record);
    void PlaceNewest(Axis& axis);
    void MarkKnownRecords();
    void MarkCallbacks(Axis& axis) const;
    bool Tell(const Placed& placed, std::size_t index, const EventVisitor& visitor) const;

    const Names& names_;
    std::vector<Placed> rings_;
};

} // namespace NimaPost
