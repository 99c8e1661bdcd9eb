#include "tools/log/LogEvents.h"

namespace NimaPost {

TimelineEvent LogEvents::Of(const LogEntry& entry) {
    if (!entry.continued) {
        thread_ = entry.line.hasHeader ? std::optional(entry.line.thread) : std::nullopt;
        level_ = entry.line.level;
        tracer_ = entry.line.tracer;
    }
    TimelineEvent event;
    event.kind = EventKind::kText;
    (entry.hasTime ? event.time : event.place) =
        entry.hasTime || entry.part->stamped > 0 ? std::optional(entry.time) : std::nullopt;
    event.certainty = entry.certainty;
    event.file = entry.part->file;
    event.thread = thread_;
    event.boot = entry.boot;
    event.process = entry.process;
    event.level = level_;
    event.name = tracer_;
    event.text = entry.line.message;
    event.mark = entry.part->overwritten ? kOverwritten : std::string_view();
    event.line = entry.text;
    event.continued = entry.continued;
    return event;
}

} // namespace NimaPost
