#include "tools/event/EventRecordSource.h"

#include "tools/event/EventRecord.h"

#include <string>
#include <utility>

namespace NimaPost {

namespace {

struct PlacedRecord {
    EventRecord record;
    std::optional<std::int64_t> time;
};

class EventRecordSource : public FileSource<PlacedRecord, Stage::kRecords, EventKind::kRecord> {
  public:
    using FileSource::FileSource;

    void Place(Axis& axis) override {
        bool unplaced = false;
        for (auto& [file, placed] : AllHeld()) {
            placed.time = axis.CallOf(placed.record.type, placed.record.id);
            unplaced = unplaced || !placed.time;
        }
        if (unplaced) {
            axis.State(
                {"event-without-time",
                 "Event records hold no time. If no ring shows the one call that handed an event over, its "
                 "time is unknown."});
        }
    }

  private:
    std::optional<PlacedRecord> ReadContent(FolderFile& file, InputFile& input) override {
        auto record = ReadEventRecord(input.ReadAll(kMostTextBytes), file.findings);
        return record ? std::optional(PlacedRecord{std::move(*record), {}}) : std::nullopt;
    }

    bool Tell(const Held& held, const EventVisitor& visitor) const override {
        const PlacedRecord& placed = held.content;
        std::string text;
        AppendEventRecord(text, placed.record);
        TimelineEvent event;
        event.kind = EventKind::kRecord;
        event.time = placed.time;
        event.certainty = Certainty::Assumed();
        event.file = held.file;
        event.name = placed.record.source;
        event.text = text;
        return visitor(event);
    }
};

} // namespace

Source& EventRecords(SourceSet& set) {
    return set.Get<EventRecordSource>();
}

} // namespace NimaPost
