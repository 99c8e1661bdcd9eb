#include "tools/systrace/RecordText.h"

#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/names/EventFormat.h"

#include <vector>

namespace NimaPost {

void AppendRecord(std::string& text, const SysTraceFile& trace, const SysTraceRecord& record,
                  const Names& names) {
    if (record.hasThread) {
        AppendHex32(text, record.thread);
    } else {
        text += "-         ";
    }
    text += "  ";
    AppendPrintable(text, names.Component(record.Component()));
    text += "  ";
    AppendPrintable(text, names.Level(record.Level()));
    text += "  ";
    AppendTraceEvent(text, names, record.Component(), record.Event(), trace.ValuesOf(record), record.state);
}

TimelineEvent TraceEvents::Of(const SysTraceFile& trace, const SysTraceRecord& record) {
    level_ = names_.Level(record.Level());
    component_ = names_.Component(record.Component());
    text_.clear();
    TimelineEvent event;
    event.arguments = trace.ValuesOf(record);
    AppendTraceEvent(text_, names_, record.Component(), record.Event(), event.arguments, record.state);
    event.kind = EventKind::kBinary;
    event.time = record.elapsed;
    event.thread = record.hasThread ? std::optional(record.thread) : std::nullopt;
    event.level = level_;
    event.name = component_;
    event.text = text_;
    event.mark = record.state == RecordState::kWhole ? std::string_view() : StateName(record.state);
    return event;
}

Json RecordJson(const SysTraceFile& trace, const SysTraceRecord& record, const Names& names) {
    const auto values = trace.ValuesOf(record);
    Json json{{"slot", record.slot},
              {"elapsed_ns", record.elapsed},
              {"stamp", record.stamp},
              {"process", record.stretch + 1},
              {"component", record.Component()},
              {"level", record.Level()},
              {"event", record.Event()},
              {"arguments", std::vector<std::uint32_t>(values.begin(), values.end())},
              {"thread", record.hasThread ? Json(Hex32(record.thread)) : Json()},
              {"state", StateName(record.state)}};
    if (const EventName* event = names.Event(record.Component(), record.Event())) {
        json["name"] = ToUtf8(event->name);
        if (record.state == RecordState::kWhole) {
            std::string text;
            AppendFormatted(text, event->format, values);
            json["text"] = ToUtf8(text);
        }
    }
    return json;
}

} // namespace NimaPost
