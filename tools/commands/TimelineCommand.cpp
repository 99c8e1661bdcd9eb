#include "tools/base/CounterClock.h"
#include "tools/base/Json.h"
#include "tools/base/JsonText.h"
#include "tools/base/OwnOutput.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/commands/FolderCommand.h"
#include "tools/commands/TimePrinter.h"
#include "tools/report/CrashData.h"
#include "tools/story/SelectedEvents.h"
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
void AppendMicroseconds(std::string& text, std::int64_t nanoseconds) {
    const std::int64_t places = Modulo(nanoseconds, 1000);
    AppendDecimal(text, (nanoseconds - places) / 1000);
    text += {'.', static_cast<char>('0' + places / 100), static_cast<char>('0' + places / 10 % 10),
             static_cast<char>('0' + places % 10)};
}

/// As `Json` writes it.
void AppendNumberOrNull(std::string& text, const std::optional<std::size_t>& number) {
    if (number) {
        AppendDecimal(text, static_cast<std::int64_t>(*number));
    } else {
        text += "null";
    }
}

void AppendBound(std::string& text, std::int64_t seconds) {
    if (seconds == Certainty::kUnbounded) {
        text += "\"unbounded\"";
    } else {
        AppendDecimal(text, seconds);
    }
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
        if (process != lastUsed_) {
            used_.insert(process);
            lastUsed_ = process;
        }
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

    /// Up to the name's text.
    std::string& BeginHead() {
        std::string& text = out_.Text();
        text += first_ ? "\n{\"name\":\"" : ",\n{\"name\":\"";
        first_ = false;
        return text;
    }

    void EndHead(const char* category, const char* phase, std::int64_t time, Track track) {
        std::string& text = out_.Text();
        text += "\",\"cat\":\"";
        text += category;
        text += "\",\"ph\":\"";
        text += phase;
        text += "\",\"ts\":";
        AppendMicroseconds(text, time);
        text += ",\"pid\":";
        AppendDecimal(text, static_cast<std::int64_t>(track.process));
        text += ",\"tid\":";
        AppendDecimal(text, static_cast<std::int64_t>(track.track));
    }

    void Instant(const TimelineEvent& event) {
        const auto thread = threads_.NumberOf(event);
        const Track track{ProcessOf(event), thread ? TrackOf(*thread) : kNoThread};
        const std::int64_t elapsed = event.time.value_or(end_) - origin_;
        AppendLabel(BeginHead(), event);
        EndHead(kCategories[static_cast<std::size_t>(event.kind)], "i", elapsed, track);
        std::string& text = out_.Text();
        text += ",\"s\":\"t\",\"args\":{\"file\":\"";
        AppendJsonText(text, story_.Files()[event.file].name);
        text += '"';
        AppendProcess(text, event);
        AppendArguments(text, event);
        AppendTime(text, event.time, event.certainty, event.mark == kOverwritten);
        text += "}}";
        out_.Pace();
        ++RateAt(elapsed / kSecond)[static_cast<std::size_t>(event.kind)];
        anyRecord_ = anyRecord_ || event.kind == EventKind::kRecord;
        ++count_;
    }

    static void AppendLabel(std::string& text, const TimelineEvent& event) {
        if (event.kind == EventKind::kText) {
            AppendJsonText(text, event.level);
            text += event.level.empty() ? "" : " ";
            AppendJsonText(text, event.name.empty() ? "text" : event.name);
            return;
        }
        AppendJsonText(text, event.name);
        text += event.name.empty() ? "" : ": ";
        AppendJsonText(text, event.name.empty() && event.text.empty() ? "text" : event.text);
    }

    static void AppendArguments(std::string& text, const TimelineEvent& event) {
        if (event.kind == EventKind::kText || !event.level.empty()) {
            text += ",\"level\":\"";
            AppendJsonText(text, event.level);
            text += '"';
        }
        if (event.kind == EventKind::kText) {
            text += ",\"message\":\"";
            AppendJsonText(text, event.text);
            text += '"';
        } else {
            for (std::size_t i = 0; i < event.arguments.size(); ++i) {
                text += ",\"argument " + std::to_string(i + 1) + "\":\"";
                AppendHex(text, event.arguments[i]);
                text += '"';
            }
        }
        if (!event.mark.empty()) {
            text += ",\"state\":\"";
            AppendJsonText(text, event.mark);
            text += '"';
        }
    }

    void Mark(const Crash& crash) {
        AppendJsonText(BeginHead(), crash.title);
        EndHead("crash", "i", crash.time.value_or(end_) - origin_, {ProcessOf(crash), kNoThread});
        Json files = Json::array();
        for (const std::size_t file : crash.files) {
            files.push_back(ToUtf8(story_.Files()[file].name));
        }
        out_.Write(",\"s\":\"g\",\"args\":{\"files\":");
        out_.WriteJson(files);
        std::string& text = out_.Text();
        AppendTime(text, crash.time, crash.certainty, false);
        AppendProcess(text, crash);
        out_.Write("}}");
    }

    /// With the digits and marks that `log` and the page show, and how far the truth may be.
    void AppendTime(std::string& text, const std::optional<std::int64_t>& time, const Certainty& certainty,
                    bool overwritten) {
        if (!time) {
            text += ",\"time\":\"unknown, put at the end\"";
            return;
        }
        text += ",\"time\":\"";
        times_.Append(text, time, story_.Time().HasWall());
        text += "\",\"mark\":\"";
        text += MarkOf(certainty).sign;
        if (overwritten) {
            text += kOverwrittenMark.sign;
        }
        text += '"';
        if (!certainty.Exact()) {
            text += ",\"later_by_seconds\":";
            AppendBound(text, certainty.later);
            text += ",\"earlier_by_seconds\":";
            AppendBound(text, certainty.earlier);
        }
    }

    template <class Thing>
    static void AppendProcess(std::string& text, const Thing& thing) {
        text += ",\"boot\":";
        AppendNumberOrNull(text, thing.boot);
        text += ",\"process\":";
        AppendNumberOrNull(text, thing.process);
    }

    /// The counts of a second, which is mostly that of the call before.
    Rates::mapped_type& RateAt(std::int64_t second) {
        if (rate_ == rates_.end() || rate_->first != second) {
            rate_ = rates_.try_emplace(second).first;
        }
        return rate_->second;
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
            BeginHead() += "entries per second";
            EndHead("rate", "C", second * kSecond, {device_, kNoThread});
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
    std::size_t lastUsed_ = 0; ///< 0 before the first
    Rates rates_;
    Rates::iterator rate_ = rates_.end();
    TimePrinter times_;
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
        "File to write, for ui.perfetto.dev; compressed if its name ends in .gz", *options);
    OnCall(*command, [&run, options] {
        run = [options](Context& c) {
            return RunOnFolder(c, *options, [&](const Story& story, Selection& selection, Output& out) {
                return WriteTimeline(story, c.names, selection, out);
            });
        };
    });
}

} // namespace NimaPost
