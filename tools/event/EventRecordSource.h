#pragma once

#include "tools/axis/Source.h"
#include "tools/event/EventRecord.h"

#include <cstdint>
#include <optional>
#include <vector>

namespace NimaPost {

/// Event records in a folder. They hold no time. If a ring shows the one call that handed the event over, the
/// record gets the time of that call.
class EventRecordSource : public Source {
  public:
    explicit EventRecordSource(SourceSet& set);

    void Read(FolderFile& file, InputFile& input) override;
    void Place(Axis& axis) override;
    bool ForEach(const EventVisitor& visitor) const override;

  private:
    struct Placed {
        std::size_t file;
        EventRecord record;
        std::optional<std::int64_t> time;
    };

    std::vector<Placed> records_;
};

} // namespace NimaPost
