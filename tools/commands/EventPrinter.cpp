#include "tools/commands/EventPrinter.h"

#include "tools/base/BoundJson.h"
#include "tools/base/CounterClock.h"
#include "tools/base/Csv.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/base/WallClock.h"
#include "tools/story/MergedStory.h"

#include <algorithm>
#include <array>
#include <utility>

namespace NimaPost {

namespace {

constexpr std::array<std::string_view, kEventKinds> kKinds{"text", "binary", "ring", "record"};
constexpr std::size_t kWidestFile = 24;
constexpr std::size_t kLevelWidth = 7;
/// Of a wall-clock time's fraction, in the short format.
constexpr std::size_t kPlacesLeftOut = 6;

void Pad(std::string& out, std::size_t written, std::size_t width) {
    out.append(written < width ? width - written : 0, ' ');
}

bool IsOverwritten(const TimelineEvent& event) {
    return event.mark == kOverwritten;
}

} // namespace

std::string_view KindName(const TimelineEvent& event) {
    return event.level == kCrashLevel && event.kind == EventKind::kRecord
               ? "crash"
               : kKinds.at(static_cast<std::size_t>(event.kind));
}

Json EventJson(const TimelineEvent& event, bool hasWall, const std::string& file) {
    Json json{{"kind", KindName(event)}, {"file", ToUtf8(file)}};
    json["time"] = event.time && hasWall ? Json(WallTimeIso(*event.time)) : Json();
    if (event.time && !hasWall) {
        json["elapsed_ns"] = *event.time;
    }
    json["certainty"] = MarkOf(event.certainty).code;
    AddBounds(json, event.certainty);
    json["boot"] = event.boot ? Json(*event.boot) : Json();
    json["process"] = event.process ? Json(*event.process) : Json();
    json["thread"] = event.thread ? Json(Hex32(*event.thread)) : Json();
    json["level"] = event.level.empty() ? Json() : Json(ToUtf8(event.level));
    json["name"] = event.name.empty() ? Json() : Json(ToUtf8(event.name));
    json["text"] = ToUtf8(event.text);
    if (event.kind == EventKind::kText) {
        json["overwritten"] = IsOverwritten(event);
        json["continues"] = event.continued;
    } else if (!event.arguments.empty()) {
        json["arguments"] = std::vector<std::uint32_t>(event.arguments.begin(), event.arguments.end());
    }
    if (event.kind == EventKind::kBinary) {
        json["state"] = event.mark.empty() ? "whole" : event.mark;
    }
    return json;
}

EventPrinter::EventPrinter(Context& context, std::vector<std::string> files, bool hasWall)
    : context_(context), files_(std::move(files)), hasWall_(hasWall) {
    for (std::string& file : files_) {
        fileWidth_ = std::max(fileWidth_, std::min(Printable(file).size(), kWidestFile));
    }
}

void EventPrinter::Begin() {
    if (context_.format == Format::kCsv && !std::exchange(context_.headed, true)) {
        context_.out.Line("time,certainty,kind,file,boot,process,thread,level,name,text");
    }
}

void EventPrinter::Print(const TimelineEvent& event, JsonDocument* document) {
    if (document != nullptr) {
        document->Element(EventJson(event, hasWall_, files_[event.file]));
        return;
    }
    if (context_.json) {
        context_.out.WriteJson(EventJson(event, hasWall_, files_[event.file]));
        context_.out.Write("\n");
        return;
    }
    std::string& out = context_.out.Text();
    if (context_.format == Format::kCsv) {
        AppendCsv(out, event);
    } else if (context_.format == Format::kShort) {
        AppendShort(out, event);
    } else {
        AppendText(out, event);
    }
    out += '\n';
    context_.out.Pace();
}

void EventPrinter::AppendText(std::string& out, const TimelineEvent& event) {
    out += context_.paint.Dim();
    times_.Append(out, event.time, hasWall_);
    out += ' ';
    out += event.time ? MarkOf(event.certainty).sign : ' ';
    out += IsOverwritten(event) ? kOverwrittenMark.sign : ' ';
    out += ' ';
    const std::size_t begin = out.size();
    AppendPrintable(out, files_[event.file]);
    Pad(out, out.size() - begin, fileWidth_);
    out += "  ";
    out += event.thread ? Hex32(*event.thread) : "-         ";
    out += context_.paint.Plain();
    out += "  ";
    out += context_.paint.OfLevel(event.level);
    out += event.level;
    Pad(out, event.level.size(), kLevelWidth);
    out += "  ";
    AppendPrintable(out, event.name);
    out += event.name.empty() ? "" : ": ";
    AppendPrintable(out, event.text);
    out += context_.paint.Plain();
}

void EventPrinter::AppendShort(std::string& out, const TimelineEvent& event) const {
    if (event.time) {
        out += context_.paint.Dim();
        if (hasWall_) {
            AppendWallTime(out, *event.time, false);
        } else {
            AppendSeconds(out, *event.time);
        }
        out.resize(out.size() - kPlacesLeftOut);
        out += context_.paint.Plain();
        out += ' ';
    }
    out += context_.paint.OfLevel(event.level);
    out += event.level;
    out += event.level.empty() ? "" : " ";
    AppendPrintable(out, event.name);
    out += event.name.empty() ? "" : ": ";
    AppendPrintable(out, event.text);
    out += context_.paint.Plain();
}

void EventPrinter::AppendCsv(std::string& out, const TimelineEvent& event) const {
    if (event.time && hasWall_) {
        out += WallTimeIso(*event.time);
    } else if (event.time) {
        AppendSeconds(out, *event.time);
    }
    const auto number = [](const std::optional<std::size_t>& value) {
        return value ? std::to_string(*value) : std::string();
    };
    for (const std::string& field :
         {std::string(MarkOf(event.certainty).code), std::string(KindName(event)),
          Printable(files_[event.file]), number(event.boot), number(event.process),
          event.thread ? Hex32(*event.thread) : std::string(), std::string(event.level),
          Printable(event.name), Printable(event.text)}) {
        out += ',';
        AppendCsvField(out, field);
    }
}

} // namespace NimaPost
