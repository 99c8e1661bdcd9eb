#include "tools/words/Wording.h"

#include "tools/base/Text.h"

#include <algorithm>

namespace NimaPost {

namespace {

std::string_view RecordStateName(RecordState state) {
    return state == RecordState::kTorn ? "torn" : state == RecordState::kEntangled ? "entangled" : "whole";
}

} // namespace

const char* CaptureStateName(std::uint32_t state) {
    switch (state) {
        case 0:
            return "none";
        case 1:
            return "tracing";
        case 2:
            return "triggered";
        case 3:
            return "trigger pending";
        case 4:
            return "capturing";
        default:
            return "unknown";
    }
}

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
    const auto values = trace.ValuesOf(record);
    const EventName* event = names.Event(record.Component(), record.Event());
    if (event != nullptr) {
        AppendPrintable(text, event->name);
    } else {
        text += "event ";
        AppendHex(text, record.Event());
    }
    if (event != nullptr && record.state == RecordState::kWhole) {
        text += event->format.empty() ? "" : ": ";
        AppendFormatted(text, *event, values);
    } else {
        for (const std::uint32_t value : values) {
            text += ' ';
            AppendHex(text, value);
        }
    }
    if (record.state != RecordState::kWhole) {
        text += "  [";
        text += RecordStateName(record.state);
        text += ']';
    }
}

Json RecordJson(const SysTraceFile& trace, const SysTraceRecord& record, const Names& names) {
    const auto values = trace.ValuesOf(record);
    Json json{{"slot", record.slot},
              {"elapsed_ns", record.elapsed},
              {"stamp", record.stamp},
              {"component", record.Component()},
              {"level", record.Level()},
              {"event", record.Event()},
              {"arguments", std::vector<std::uint32_t>(values.begin(), values.end())},
              {"thread", record.hasThread ? Json(Hex32(record.thread)) : Json()},
              {"state", RecordStateName(record.state)}};
    if (const EventName* event = names.Event(record.Component(), record.Event())) {
        json["name"] = ToUtf8(event->name);
        if (record.state == RecordState::kWhole) {
            std::string text;
            AppendFormatted(text, *event, values);
            json["text"] = ToUtf8(text);
        }
    }
    return json;
}

void AppendRingWords(std::string& text, std::string_view ring, const RingBufferData& record,
                     const Names& names) {
    const EventName* event = names.RingEvent(ring, record.words[0]);
    if (event != nullptr) {
        AppendPrintable(text, event->name);
        text += event->format.empty() ? "" : ": ";
        // Behind the code a record always holds four words; what the format does not take is no argument.
        const std::size_t count = event->arguments ? std::min<std::size_t>(*event->arguments, 4) : 4;
        AppendFormatted(text, *event, std::span(record.words).subspan(1, count));
    } else {
        for (const std::uint32_t word : record.words) {
            AppendHex32(text, word);
            text += ' ';
        }
        text.pop_back();
    }
}

} // namespace NimaPost
