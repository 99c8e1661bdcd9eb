#pragma once

#include "tools/axis/Source.h"
#include "tools/systrace/SysTrace.h"

#include <cstdint>
#include <vector>

namespace NimaPost {

/// Binary traces in a folder: the segment and dumps of it.
class SysTraceSource : public Source {
  public:
    explicit SysTraceSource(SourceSet& set);

    void Read(FolderFile& file, InputFile& input) override;
    void Place(Axis& axis) override;
    bool ForEach(const EventVisitor& visitor) const override;

  private:
    struct Placed {
        std::size_t file;
        SysTraceFile trace;
        std::int64_t origin; ///< the start of elapsed time, on the axis
        /// Records that a fuller source already has.
        std::vector<bool> known;
    };

    void MarkKnownRecords();
    bool Tell(const Placed& placed, const EventVisitor& visitor) const;

    const Names& names_;
    std::vector<Placed> traces_;
};

} // namespace NimaPost
