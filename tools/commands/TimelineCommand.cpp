#include "tools/base/BoundJson.h"
#include "tools/base/CounterClock.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/commands/FolderCommand.h"
#include "tools/report/CrashData.h"
#include "tools/story/SelectedEvents.h"
#include "tools/story/Sources.h"
#include "tools/story/Story.h"
#include "tools/story/Threads.h"

#include <algorithm>
#include <array>
#include <functional>
#include <map>
#include <memory>
#include <set>

namespace NimaPost {

namespace {

/// Used as categories of events and as the counter's lanes.
constexpr std::array kCategories{"text", "binary", "ring", "record"};
constexpr std::array kLanes{"text lines", "binary records", "ring events", "event records"};
static_assert(kCategories.size() == kEventKinds && kLanes.size() == kEventKinds, "one of each for each kind");

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
    TraceWriter(Output& out, const Names& names, const Story& story, Selection& selection)
        : out_(out),
          threads_(names),
          story_(story),
          selection_(selection),
          device_(story.Time().AllProcesses().All().size() + 1) {}

    void Write() {
        FindRange();
        out_.Write(kTimelineBegin);
        ForEach([&](const TimelineEvent& event) { Instant(event); });
        for (const Crash& crash : story_.Crashes()) {
            if (selection_.Takes(crash)) {
                Mark(crash);
            }
        }
        Counters();
        NameProcesses();
        threads_.ForEach([&](const Threads::Thread& thread) {
            const std::string id = Hex32(thread.id);
            Metadata("thread_name", {ProcessOf(thread), TrackOf(thread.number)},
                     thread.name.empty() ? id : thread.name + " " + id);
        });
        out_.Write("\n],\n\"displayTimeUnit\": \"ns\",\n\"otherData\": ");
        out_.WriteJson(OtherData());
        out_.Write("}\n");
    }

    std::uint64_t Count() const { return count_; }

  private:
    /// A track of a Perfetto process.
    struct Track {
        std::size_t process = 0;
        std::size_t track = kNoThread;
    };

    /// The Perfetto process for an event, a crash or a thread: what is of no known process has one of its
    /// own.
    template <class Thing>
    std::size_t ProcessOf(const Thing& thing) {
        const std::size_t process = thing.process.value_or(device_);
        used_.insert(process);
        return process;
    }

    void NameProcesses() {
        used_.insert(device_);
        for (const std::size_t process : used_) {
            Metadata("process_name", {process, kNoThread},
                     process != device_ ? ProcessInWords(process, story_.Time().AllProcesses()[process].boot)
                     : story_.Time().HasWall() ? "device"
                                               : "device (no wall clock)");
            Describe("process_sort_index", {process, kNoThread}, {{"sort_index", process}});
            Metadata("thread_name", {process, kNoThread}, "no thread");
        }
    }

    void ForEach(const std::function<void(const TimelineEvent&)>& visitor) {
        ForEachSelected(story_, selection_, visitor);
    }

    void FindRange() {
        std::int64_t first = INT64_MAX;
        end_ = INT64_MIN;
        const auto widen = [&](const std::optional<std::int64_t>& time) {
            first = std::min(first, time.value_or(INT64_MAX));
            end_ = std::max(end_, time.value_or(INT64_MIN));
        };
        ForEach([&](const TimelineEvent& event) { widen(event.time); });
        for (const Crash& crash : story_.Crashes()) {
            if (selection_.Takes(crash)) {
                widen(crash.time);
            }
        }
        origin_ = first == INT64_MAX ? 0 : first;
        end_ = std::max(end_, origin_);
    }

    void Head(const Json& name, const char* category, const char* phase, std::int64_t time, Track track) {
        out_.Write(first_ ? "\n{\"name\":" : ",\n{\"name\":");
        first_ = false;
        out_.WriteJson(name);
        std::string& text = out_.Text();
        text += ",\"cat\":\"";
        text += category;
        text += "\",\"ph\":\"";
        text += phase;
        text += "\",\"ts\":" + Microseconds(time) + ",\"pid\":" + std::to_string(track.process) +
                ",\"tid\":" + std::to_string(track.track);
    }

    void Instant(const TimelineEvent& event) {
        const auto thread = threads_.NumberOf(event);
        const Track track{ProcessOf(event), thread ? TrackOf(*thread) : kNoThread};
        Json arguments{{"file", ToUtf8(story_.Files()[event.file].name)}};
        AddProcess(arguments, event);
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
        AddTime(arguments, event.time, event.certainty, event.mark == kOverwritten);
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

    void Mark(const Crash& crash) {
        Json files = Json::array();
        Head(ToUtf8(crash.title), "crash", "i", crash.time.value_or(end_) - origin_,
             {ProcessOf(crash), kNoThread});
        for (const std::size_t file : crash.files) {
            files.push_back(ToUtf8(story_.Files()[file].name));
        }
        out_.Write(",\"s\":\"g\",\"args\":");
        Json arguments{{"files", files}};
        AddTime(arguments, crash.time, crash.certainty, false);
        AddProcess(arguments, crash);
        out_.WriteJson(arguments);
        out_.Write("}");
    }

    /// With the digits and marks that `log` and the page show, and how far the truth may be.
    void AddTime(Json& arguments, const std::optional<std::int64_t>& time, const Certainty& certainty,
                 bool overwritten) const {
        if (!time) {
            arguments["time"] = "unknown, put at the end";
            return;
        }
        arguments["time"] = MomentInWords(story_.Time(), *time);
        arguments["mark"] = std::string(1, MarkOf(certainty).sign) +
                            (overwritten ? std::string(1, kOverwrittenMark.sign) : "");
        if (!certainty.Exact()) {
            arguments["later_by_seconds"] = BoundJson(certainty.later);
            arguments["earlier_by_seconds"] = BoundJson(certainty.earlier);
        }
    }

    template <class Thing>
    static void AddProcess(Json& arguments, const Thing& thing) {
        arguments["boot"] = thing.boot ? Json(*thing.boot) : Json();
        arguments["process"] = thing.process ? Json(*thing.process) : Json();
    }

    void Metadata(const char* kind, Track track, const std::string& name) {
        Describe(kind, track, {{"name", name}});
    }

    void Describe(const char* kind, Track track, const Json& arguments) {
        out_.Write(first_ ? "\n" : ",\n");
        first_ = false;
        out_.WriteJson(Json{
            {"name", kind}, {"ph", "M"}, {"pid", track.process}, {"tid", track.track}, {"args", arguments}});
    }

    void Counters() {
        const auto write = [&](std::int64_t second, const Rates::mapped_type& counts) {
            Head("entries per second", "rate", "C", second * kSecond, {device_, kNoThread});
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

    Json OtherData() const {
        Json files = Json::array();
        for (const FolderFile& file : story_.Files()) {
            files.push_back({{"name", ToUtf8(file.name)},
                             {"kind", file.row != nullptr ? file.row->kind : "other"},
                             {"findings", FindingsJson(file.findings)}});
        }
        Json marks = Json::object();
        for (const TimeMark& mark : kTimeMarks) {
            marks[std::string(1, mark.sign)] = mark.meaning;
        }
        marks[std::string(1, kOverwrittenMark.sign)] = kOverwrittenMark.meaning;
        return {{"tool", "nima-post"},
                {"marks", marks},
                {"origin", story_.Time().HasWall() ? Json(WallTimeIso(origin_)) : Json()},
                {"clock", FindingsJson(story_.Time().Statement())},
                {"files", files}};
    }

    Output& out_;
    Threads threads_;
    const Story& story_;
    Selection& selection_;
    std::size_t device_; ///< the Perfetto process for what is of no known process
    std::set<std::size_t> used_;
    Rates rates_;
    std::int64_t origin_ = 0;
    std::int64_t end_ = 0;
    std::uint64_t count_ = 0;
    bool first_ = true;
    bool anyRecord_ = false;
};

FolderResult WriteTimeline(const Story& story, const Names& names, Selection& selection, Output& out) {
    TraceWriter writer(out, names, story, selection);
    writer.Write();
    return {{{"events", writer.Count()}}, Counted(writer.Count(), "event") + " in ", {}};
}

} // namespace

void AddTimelineCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<FolderOptions>();
    CLI::App* command = AddFolderCommand(
        app, context, "timeline", "Everything in a folder on one time axis, as Chrome trace-event JSON",
        "File to write, for ui.perfetto.dev", *options);
    OnCall(*command, [&run, options] {
        run = [options](Context& c) {
            return RunOnFolder(c, *options, [&](const Story& story, Selection& selection, Output& out) {
                return WriteTimeline(story, c.names, selection, out);
            });
        };
    });
}

} // namespace NimaPost
