#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/commands/FolderCommand.h"
#include "tools/story/Sources.h"
#include "tools/story/Story.h"
#include "tools/story/Threads.h"

#include <algorithm>
#include <array>
#include <map>
#include <memory>

namespace NimaPost {

namespace {

constexpr int kProcess = 1;

/// Used as categories of events and as the counter's lanes.
constexpr std::array<const char*, kEventKinds> kCategories{"text", "binary", "ring", "record"};
constexpr std::array<const char*, kEventKinds> kLanes{"text lines", "binary records", "ring events",
                                                      "event records"};

std::string_view CertaintyInWords(const std::optional<std::int64_t>& time, const Certainty& certainty) {
    return time ? MarkOf(certainty).meaning : "unknown, put at the end";
}

/// Microseconds with three decimal places; a floating-point number would lose the nanoseconds.
std::string Microseconds(std::int64_t nanoseconds) {
    std::string places;
    AppendSeconds(places, Modulo(nanoseconds, 1000));
    std::string text;
    AppendDecimal(text, (nanoseconds - Modulo(nanoseconds, 1000)) / 1000);
    return text + '.' + places.substr(places.size() - 3);
}

/// Events without a thread have a track of their own, the first.
constexpr std::size_t kNoThread = 0;

constexpr std::size_t TrackOf(std::size_t thread) {
    return thread + 1;
}

/// Entries of each kind in each second.
using Rates = std::map<std::int64_t, std::array<std::uint64_t, kEventKinds>>;

class TraceWriter {
  public:
    TraceWriter(Output& out, const Names& names) : out_(out), threads_(names) {}

    void Write(const Story& story) {
        FindRange(story);
        out_.Write(kTimelineBegin);
        Metadata("process_name", kNoThread, story.Time().HasWall() ? "device" : "device (no wall clock)");
        story.ForEach([&](const TimelineEvent& event) {
            Instant(story, event);
            return true;
        });
        Metadata("thread_name", kNoThread, "no thread");
        threads_.ForEach([&](std::size_t number, std::uint32_t id, const std::string& name) {
            Metadata("thread_name", TrackOf(number), name.empty() ? Hex32(id) : name + " " + Hex32(id));
        });
        Counters();
        for (const Crash& crash : story.Crashes()) {
            Mark(crash, story);
        }
        out_.Write("\n],\n\"displayTimeUnit\": \"ns\",\n\"otherData\": ");
        out_.WriteJson(OtherData(story));
        out_.Write("}\n");
    }

    std::uint64_t Count() const { return count_; }

  private:
    void FindRange(const Story& story) {
        std::int64_t first = INT64_MAX;
        end_ = INT64_MIN;
        story.ForEach([&](const TimelineEvent& event) {
            if (event.time) {
                first = std::min(first, *event.time);
                end_ = std::max(end_, *event.time);
            }
            return true;
        });
        origin_ = first == INT64_MAX ? 0 : first;
        end_ = std::max(end_, origin_);
    }

    void Head(const Json& name, const char* category, const char* phase, std::int64_t time,
              std::size_t track) {
        out_.Write(first_ ? "\n{\"name\":" : ",\n{\"name\":");
        first_ = false;
        out_.WriteJson(name);
        std::string& text = out_.Text();
        text += ",\"cat\":\"";
        text += category;
        text += "\",\"ph\":\"";
        text += phase;
        text += "\",\"ts\":" + Microseconds(time) + ",\"pid\":" + std::to_string(kProcess) +
                ",\"tid\":" + std::to_string(track);
    }

    void Instant(const Story& story, const TimelineEvent& event) {
        const auto thread = threads_.NumberOf(event);
        const std::size_t track = thread ? TrackOf(*thread) : kNoThread;
        Json arguments{{"file", ToUtf8(story.Files()[event.file].name)}};
        std::string label = ToUtf8(event.name);
        if (event.kind == EventKind::kText) {
            arguments["level"] = ToUtf8(event.level);
            arguments["message"] = ToUtf8(event.text);
        } else {
            label += label.empty() ? "" : ": ";
            label += ToUtf8(event.text);
            if (!event.level.empty()) {
                arguments["level"] = ToUtf8(event.level);
            }
            for (std::size_t i = 0; i < event.arguments.size(); ++i) {
                arguments["argument " + std::to_string(i + 1)] = Hex(event.arguments[i]);
            }
        }
        if (label.empty()) {
            label = "text";
        }
        if (!event.mark.empty()) {
            arguments["state"] = event.mark;
        }
        arguments["time"] = CertaintyInWords(event.time, event.certainty);
        Head(event.kind == EventKind::kText && !event.level.empty() ? ToUtf8(event.level) + " " + label
                                                                    : label,
             kCategories[static_cast<std::size_t>(event.kind)], "i", event.time.value_or(end_) - origin_,
             track);
        out_.Write(",\"s\":\"t\",\"args\":");
        out_.WriteJson(arguments);
        out_.Write("}");
        ++rates_[(event.time.value_or(end_) - origin_) / kSecond][static_cast<std::size_t>(event.kind)];
        anyRecord_ = anyRecord_ || event.kind == EventKind::kRecord;
        ++count_;
    }

    void Mark(const Crash& crash, const Story& story) {
        Json arguments = Json::array();
        Head(ToUtf8(crash.title), "crash", "i", crash.time.value_or(end_) - origin_, kNoThread);
        for (const std::size_t file : crash.files) {
            arguments.push_back(ToUtf8(story.Files()[file].name));
        }
        out_.Write(",\"s\":\"g\",\"args\":");
        out_.WriteJson(Json{{"files", arguments}, {"time", CertaintyInWords(crash.time, crash.certainty)}});
        out_.Write("}");
    }

    void Metadata(const char* kind, std::size_t track, const std::string& name) {
        out_.Write(first_ ? "\n" : ",\n");
        first_ = false;
        out_.WriteJson(
            Json{{"name", kind}, {"ph", "M"}, {"pid", kProcess}, {"tid", track}, {"args", {{"name", name}}}});
    }

    void Counters() {
        const auto write = [&](std::int64_t second, const Rates::mapped_type& counts) {
            Head("entries per second", "rate", "C", second * kSecond, kNoThread);
            out_.Write(",\"args\":");
            Json lanes = Json::object();
            for (std::size_t kind = 0; kind < kEventKinds; ++kind) {
                if (kind != static_cast<std::size_t>(EventKind::kRecord) || anyRecord_) {
                    lanes[kLanes[kind]] = counts[kind];
                }
            }
            out_.WriteJson(lanes);
            out_.Write("}");
        };
        for (auto rate = rates_.begin(); rate != rates_.end(); ++rate) {
            write(rate->first, rate->second);
            // A counter keeps its value until the next one, so a second without entries needs one of its own.
            const auto next = std::next(rate);
            if (next == rates_.end() || next->first != rate->first + 1) {
                write(rate->first + 1, {});
            }
        }
    }

    Json OtherData(const Story& story) const {
        Json files = Json::array();
        for (const FolderFile& file : story.Files()) {
            files.push_back({{"name", ToUtf8(file.name)},
                             {"kind", file.row != nullptr ? file.row->kind : "other"},
                             {"findings", FindingsJson(file.findings)}});
        }
        return {{"tool", "nima-post"},
                {"origin", story.Time().HasWall() ? Json(WallTimeIso(origin_)) : Json()},
                {"clock", FindingsJson(story.Time().Statement())},
                {"files", files}};
    }

    Output& out_;
    Threads threads_;
    Rates rates_;
    std::int64_t origin_ = 0;
    std::int64_t end_ = 0;
    std::uint64_t count_ = 0;
    bool first_ = true;
    bool anyRecord_ = false;
};

FolderResult WriteTimeline(const Story& story, const Names& names, Output& out) {
    TraceWriter writer(out, names);
    writer.Write(story);
    return {{{"events", writer.Count()}}, Counted(writer.Count(), "event") + " in "};
}

} // namespace

void AddTimelineCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<FolderOptions>();
    CLI::App* command = AddFolderCommand(
        app, context, "timeline", "Everything in a folder on one time axis, as Chrome trace-event JSON",
        "File to write, for ui.perfetto.dev", *options);
    command->callback([&run, options] {
        run = [options](Context& c) {
            return RunOnFolder(c, *options, [&](const Story& story, Output& out) {
                return WriteTimeline(story, c.names, out);
            });
        };
    });
}

} // namespace NimaPost
