#include "tools/commands/LogFollow.h"

#include "tools/base/BoundJson.h"
#include "tools/base/Interrupt.h"
#include "tools/base/Json.h"
#include "tools/base/LocalTime.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/commands/EventPrinter.h"
#include "tools/commands/LinePrinter.h"
#include "tools/input/ArchiveReader.h"
#include "tools/log/FollowClock.h"
#include "tools/log/LogEvents.h"
#include "tools/log/LogFollower.h"
#include "tools/log/ShownLines.h"

#include <chrono>
#include <filesystem>
#include <iostream>
#include <thread>

namespace NimaPost {

namespace {

constexpr std::chrono::milliseconds kPause(100);

Json FollowedJson(const std::string& path, const LogEntry& entry) {
    const LogLine& line = entry.line;
    Json json{{"schema", kJsonSchema}, {"file", ToUtf8(path)}};
    json["time"] = entry.hasTime ? Json(WallTimeIso(entry.time)) : Json();
    json["certainty"] = MarkOf(entry.certainty).code;
    AddBounds(json, entry.certainty);
    if (line.hasHeader) {
        json["counter"] = line.counter;
        json["thread"] = Hex32(line.thread);
        json["level"] = line.level;
        json["tracer"] = ToUtf8(line.tracer);
    }
    json["message"] = ToUtf8(line.message);
    return json;
}

/// A log that does not exist yet can be waited for; what is there must be readable.
bool CanFollow(const std::string& path, std::string& problem) {
    std::error_code error;
    if (const auto file = InputFile::Open(path, problem)) {
        problem = path + ": an archive, or compressed; only a text log can be followed";
        return !LooksPacked(file->ReadAll(kFrontBytes));
    }
    if (std::filesystem::exists(path, error)) {
        return false;
    }
    std::cerr << "note: " << Printable(problem) << "; waiting for it\n";
    return true;
}

/// Prints lines in any of the formats.
class FollowedLines {
  public:
    FollowedLines(Context& context, const std::string& path)
        : context_(context),
          path_(path),
          inRows_(context.format == Format::kCsv || context.format == Format::kShort),
          lines_(context),
          rows_(context, {path}, true) {
        if (inRows_) {
            rows_.Begin();
        }
    }

    void Print(const LogEntry& entry) {
        if (context_.json) {
            context_.out.WriteJson(FollowedJson(path_, entry));
            context_.out.Write("\n");
        } else if (inRows_) {
            rows_.Print(events_.Of(entry), nullptr);
        } else {
            lines_.Print(entry);
        }
    }

  private:
    Context& context_;
    const std::string& path_;
    bool inRows_;
    LinePrinter lines_;
    EventPrinter rows_;
    LogEvents events_;
};

} // namespace

int FollowLog(Context& context, const std::string& path, LogFilter& filter) {
    const Interrupt interrupt;
    // Before anybody is told to wait: a log that is written from then on is followed from its start.
    LogFollower follower(path);
    std::string problem;
    if (!CanFollow(path, problem)) {
        return ReportUnopened(context, problem);
    }
    context.paged = false;
    FollowClock clock(path, follower.Position());
    FollowedLines lines(context, path);
    const LogPart nowhere;
    ShownLines shown(filter, [&](const LogEntry& entry) { lines.Print(entry); });
    std::string told;
    while (!interrupt.Requested()) {
        const bool any = follower.Poll([&](const FollowedLine& line) {
            LogEntry entry;
            entry.part = &nowhere;
            entry.line = ParseLogLine(line.text);
            entry.text = WithoutLineEnd(line.text);
            entry.offset = line.offset;
            entry.continued = !entry.line.hasHeader;
            clock.Place(entry, line, LocalTimeNow());
            shown.Take(entry);
        });
        if (!any) {
            shown.Finish();
        }
        if (!context.out.Flush()) {
            break;
        }
        if (const std::string error = follower.ReadError(); !error.empty() && error != told) {
            std::cerr << "damaged: " << Printable(path) << ": Not all of it could be read: " << error
                      << ".\n";
            told = error;
        }
        if (!any) {
            std::this_thread::sleep_for(kPause);
        }
    }
    return told.empty() ? kExitFine : kExitDamaged;
}

} // namespace NimaPost
