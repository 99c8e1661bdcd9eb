#include "tools/event/EventRecordSource.h"

#include <string>
#include <utility>

namespace NimaPost {

EventRecordSource::EventRecordSource(SourceSet& /*set*/) : Source(Stage::kRecords, EventKind::kRecord) {}

void EventRecordSource::Read(FolderFile& file, InputFile& input) {
    auto record = ReadEventRecord(input.ReadAll(kMostTextBytes), file.findings);
    file.unusable = !record;
    if (record) {
        records_.push_back({file.index, std::move(*record), {}});
    }
}

void EventRecordSource::Place(Axis& axis) {
    bool unplaced = false;
    for (Placed& placed : records_) {
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

bool EventRecordSource::ForEach(const EventVisitor& visitor) const {
    std::string text;
    for (const Placed& placed : records_) {
        text.clear();
        AppendEventRecord(text, placed.record);
        TimelineEvent event;
        event.kind = EventKind::kRecord;
        event.time = placed.time;
        event.certainty = Certainty::Assumed();
        event.file = placed.file;
        event.name = placed.record.source;
        event.text = text;
        if (!visitor(event)) {
            return false;
        }
    }
    return true;
}

} // namespace NimaPost
