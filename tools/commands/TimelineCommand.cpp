#include "tools/base/CounterClock.h"
#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"
#include "tools/commands/Commands.h"
#include "tools/story/Timeline.h"

#include <map>
#include <memory>

namespace NimaPost {

namespace {

constexpr int kProcess = 1;

struct Options {
    std::string folder;
    std::string output;
};

const char* Category(EventKind kind) {
    return kind == EventKind::kText ? "text" : kind == EventKind::kBinary ? "binary" : "ring";
}

const char* SurenessName(Sureness sureness) {
    switch (sureness) {
        case Sureness::kExact:
            return "exact";
        case Sureness::kShifted:
            return "perhaps whole seconds off";
        default:
            return "assumed, counted back from the newest record";
    }
}

/// Microseconds with three places; a floating-point number would lose the nanoseconds.
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
        // The library itself calibrates the log on whichever thread comes along.
        if (track.tracer.empty() && event.kind == EventKind::kText && event.level != "CAL") {
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
using Rates = std::map<std::int64_t, std::array<std::uint64_t, 3>>;

class TraceWriter {
  public:
    TraceWriter(Output& out, const Names& names) : out_(out), tracks_(names) {}

    void Write(const Timeline& timeline) {
        std::int64_t origin = INT64_MAX;
        timeline.ForEach([&](const TimelineEvent& event) {
            origin = std::min(origin, event.time);
            return true;
        });
        origin_ = origin == INT64_MAX ? 0 : origin;
        out_.Write("{\"traceEvents\": [");
        Metadata("process_name", 0, timeline.HasWall() ? "device" : "device (no wall clock)");
        timeline.ForEach([&](const TimelineEvent& event) {
            Instant(timeline, event);
            return true;
        });
        tracks_.ForEach(
            [&](std::size_t number, const std::string& name) { Metadata("thread_name", number, name); });
        Counters();
        if (const auto crash = timeline.CrashTime()) {
            Head("crash log written", "crash", "i", *crash - origin_, 0);
            out_.Write(",\"s\":\"g\"}");
        }
        out_.Write("\n],\n\"displayTimeUnit\": \"ns\",\n\"otherData\": ");
        out_.WriteJson(OtherData(timeline));
        out_.Write("}\n");
    }

    std::uint64_t Count() const { return count_; }

  private:
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

    void Instant(const Timeline& timeline, const TimelineEvent& event) {
        const std::size_t track = tracks_.Of(event);
        Json arguments{{"file", ToUtf8(timeline.Files()[event.source].name)}};
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
        arguments["time"] = SurenessName(event.sureness);
        Head(event.kind == EventKind::kText && !event.level.empty() ? ToUtf8(event.level) + " " + label
                                                                    : label,
             Category(event.kind), "i", event.time - origin_, track);
        out_.Write(",\"s\":\"t\",\"args\":");
        out_.WriteJson(arguments);
        out_.Write("}");
        ++rates_[(event.time - origin_) / kSecond][static_cast<std::size_t>(event.kind)];
        ++count_;
    }

    void Metadata(const char* kind, std::size_t track, const std::string& name) {
        out_.Write(first_ ? "\n" : ",\n");
        first_ = false;
        out_.WriteJson(
            Json{{"name", kind}, {"ph", "M"}, {"pid", kProcess}, {"tid", track}, {"args", {{"name", name}}}});
    }

    void Counters() {
        const auto write = [&](std::int64_t second, const std::array<std::uint64_t, 3>& counts) {
            Head("entries per second", "rate", "C", second * kSecond, 0);
            out_.Write(",\"args\":");
            out_.WriteJson(
                Json{{"text lines", counts[0]}, {"binary records", counts[1]}, {"ring events", counts[2]}});
            out_.Write("}");
        };
        for (auto rate = rates_.begin(); rate != rates_.end(); ++rate) {
            write(rate->first, rate->second);
            // A counter keeps its value until the next one, so a quiet second has to say so.
            const auto next = std::next(rate);
            if (next == rates_.end() || next->first != rate->first + 1) {
                write(rate->first + 1, {});
            }
        }
    }

    Json OtherData(const Timeline& timeline) const {
        Json files = Json::array();
        for (const FolderFile& file : timeline.Files()) {
            files.push_back({{"name", ToUtf8(file.name)},
                             {"kind", KindName(file.kind)},
                             {"findings", FindingsJson(file.findings)}});
        }
        Json clock = Json::array();
        for (const std::string& sentence : timeline.ClockStatement()) {
            clock.push_back(ToUtf8(sentence));
        }
        return {{"tool", "nima-post"},
                {"origin", timeline.HasWall() ? Json(WallTimeIso(origin_)) : Json()},
                {"clock", clock},
                {"files", files}};
    }

    Output& out_;
    Tracks tracks_;
    Rates rates_;
    std::int64_t origin_ = 0;
    std::uint64_t count_ = 0;
    bool first_ = true;
};

int RunTimeline(Context& context, const Options& options) {
    Timeline timeline;
    std::string problem;
    if (!timeline.Read(options.folder, context.names, problem)) {
        return ReportUnusable(context, problem);
    }
    OutputFile file;
    if (!file.Create(options.output, problem)) {
        return ReportUnusable(context, problem);
    }
    TraceWriter writer(file.Out(), context.names);
    writer.Write(timeline);
    if (!file.Finish(problem)) {
        return ReportUnusable(context, problem);
    }
    const Findings findings = timeline.AllFindings();
    if (context.json) {
        context.out.WriteJson(Json{{"output", ToUtf8(options.output)},
                                   {"events", writer.Count()},
                                   {"findings", FindingsJson(findings)}});
        context.out.Write("\n");
    } else {
        context.out.Line(Counted(writer.Count(), "event") + " in " + options.output);
        PrintFindings(context.out, findings);
    }
    return ExitCodeOf(findings);
}

} // namespace

void AddTimelineCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* command = AddCommand(app, context, "timeline",
                                   "Everything in a folder on one time axis, as Chrome trace-event JSON");
    command->add_option("FOLDER", options->folder, "What came back from the device")->required();
    command->add_option("-o,--output", options->output, "File to write, for ui.perfetto.dev")
        ->required()
        ->type_name("FILE");
    command->callback([&run, options] { run = [options](Context& c) { return RunTimeline(c, *options); }; });
}

} // namespace NimaPost
