#include "catalogue/Marks.h"
#include "tools/base/CounterClock.h"
#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"
#include "tools/commands/Commands.h"
#include "tools/story/Sources.h"
#include "tools/story/Story.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <memory>

namespace NimaPost {

namespace {

constexpr int kProcess = 1;

struct Options {
    std::string folder;
    std::string output;
};

/// Used as categories of events and as the counter's lanes.
constexpr std::array<const char*, kEventKinds> kCategories{"text", "binary", "ring", "record"};
constexpr std::array<const char*, kEventKinds> kLanes{"text lines", "binary records", "ring events",
                                                      "event records"};

const char* CertaintyInWords(const TimelineEvent& event) {
    return !event.time               ? "unknown, put at the end"
           : event.certainty.assumed ? "assumed, counted back from the newest record"
           : event.certainty.Exact() ? "exact"
                                     : "perhaps whole seconds off";
}

/// Microseconds with three decimal places; a floating-point number would lose the nanoseconds.
std::string Microseconds(std::int64_t nanoseconds) {
    std::string places;
    AppendSeconds(places, Modulo(nanoseconds, 1000));
    std::string text;
    AppendDecimal(text, (nanoseconds - Modulo(nanoseconds, 1000)) / 1000);
    return text + '.' + places.substr(places.size() - 3);
}

/// Tracks are numbered in the order in which threads appear, and named after the tracer that used them first.
class Tracks {
  public:
    explicit Tracks(const Names& names) : names_(names) {}

    std::size_t Of(const TimelineEvent& event) {
        if (!event.thread) {
            return 0;
        }
        Track& track = tracks_.try_emplace(*event.thread, Track{tracks_.size() + 1, {}}).first->second;
        // The library itself calibrates the log, on whichever thread happens to write.
        if (track.tracer.empty() && event.kind == EventKind::kText &&
            event.level != Nima::Catalogue::kCalibrationLevel) {
            track.tracer = ToUtf8(event.name);
        }
        return track.number;
    }

    void ForEach(const std::function<void(std::size_t, const std::string&)>& visitor) const {
        visitor(0, "no thread");
        for (const auto& [id, track] : tracks_) {
            const std::string name = names_.Thread(id);
            const std::string& shown = name.empty() ? track.tracer : name;
            visitor(track.number, shown.empty() ? Hex32(id) : shown + " " + Hex32(id));
        }
    }

  private:
    struct Track {
        std::size_t number;
        std::string tracer;
    };
    const Names& names_;
    std::map<std::uint32_t, Track> tracks_;
};

/// Entries of each kind in each second.
using Rates = std::map<std::int64_t, std::array<std::uint64_t, kEventKinds>>;

class TraceWriter {
  public:
    TraceWriter(Output& out, const Names& names) : out_(out), tracks_(names) {}

    void Write(const Story& story) {
        FindRange(story);
        out_.Write(kTimelineBegin);
        Metadata("process_name", 0, story.Time().HasWall() ? "device" : "device (no wall clock)");
        story.ForEach([&](const TimelineEvent& event) {
            Instant(story, event);
            return true;
        });
        tracks_.ForEach(
            [&](std::size_t number, const std::string& name) { Metadata("thread_name", number, name); });
        Counters();
        if (const auto crash = story.Time().Crash()) {
            Head("crash log written", "crash", "i", *crash - origin_, 0);
            out_.Write(",\"s\":\"g\"}");
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
        const std::size_t track = tracks_.Of(event);
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
        arguments["time"] = CertaintyInWords(event);
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

    void Metadata(const char* kind, std::size_t track, const std::string& name) {
        out_.Write(first_ ? "\n" : ",\n");
        first_ = false;
        out_.WriteJson(
            Json{{"name", kind}, {"ph", "M"}, {"pid", kProcess}, {"tid", track}, {"args", {{"name", name}}}});
    }

    void Counters() {
        const auto write = [&](std::int64_t second, const Rates::mapped_type& counts) {
            Head("entries per second", "rate", "C", second * kSecond, 0);
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
    Tracks tracks_;
    Rates rates_;
    std::int64_t origin_ = 0;
    std::int64_t end_ = 0;
    std::uint64_t count_ = 0;
    bool first_ = true;
    bool anyRecord_ = false;
};

int RunTimeline(Context& context, const Options& options) {
    Story story(context.names);
    std::string problem;
    if (!story.Read(options.folder, problem)) {
        return ReportUnusable(context, problem);
    }
    OutputFile file;
    if (!file.Create(options.output, story.Inputs(), problem)) {
        return ReportUnusable(context, problem);
    }
    TraceWriter writer(file.Out(), context.names);
    writer.Write(story);
    if (!file.Finish(problem)) {
        return ReportUnusable(context, problem);
    }
    const Findings findings = story.AllDamage();
    if (context.json) {
        context.out.WriteJson(Json{{"output", ToUtf8(options.output)},
                                   {"events", writer.Count()},
                                   {"findings", FindingsJson(findings)}});
        context.out.Write("\n");
    } else {
        context.out.Line(Counted(writer.Count(), "event") + " in " + options.output);
        PrintFindings(context, findings);
    }
    return ExitCodeOf(findings);
}

} // namespace

void AddTimelineCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* command = AddCommand(app, context, "timeline",
                                   "Everything in a folder on one time axis, as Chrome trace-event JSON");
    command->add_option("FOLDER", options->folder, "The folder that came back from the device")->required();
    command->add_option("-o,--output", options->output, "File to write, for ui.perfetto.dev")
        ->required()
        ->type_name("FILE");
    command->callback([&run, options] { run = [options](Context& c) { return RunTimeline(c, *options); }; });
}

} // namespace NimaPost
