#include "tools/timeline/ChromeTrace.h"

#include "tools/base/CounterClock.h"
#include "tools/base/FindingsJson.h"
#include "tools/base/Json.h"
#include "tools/base/JsonText.h"
#include "tools/base/OwnOutput.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/base/TimePrinter.h"
#include "tools/base/WallClock.h"
#include "tools/story/MergedStory.h"
#include "tools/story/SelectedEvents.h"
#include "tools/story/Threads.h"
#include "tools/timeline/Tracks.h"

#include <array>
#include <map>
#include <set>

namespace NimaPost {

namespace {

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
        text += '"';
        text += kUnboundedInWords;
        text += '"';
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

class ChromeWriter {
  public:
    ChromeWriter(Output& out, const Names& names, const Story& story, Selection& selection)
        : out_(out), threads_(names), story_(story), selection_(selection), device_(DeviceProcess(story)) {}

    void Write() {
        range_ = RangeOf(story_, selection_, [](const TimelineEvent& /*event*/) {});
        out_.Write(kTimelineBegin);
        ForEachSelected(story_, selection_, [&](const TimelineEvent& event) { Instant(event); });
        for (const Crash& crash : story_.Crashes()) {
            if (selection_.Takes(crash)) {
                Mark(crash);
            }
        }
        Counters();
        NameProcesses();
        threads_.ForEach([&](const Threads::Thread& thread) {
            Metadata("thread_name", {ProcessOf(thread), TrackOf(thread.number)}, ThreadTitle(thread));
        });
        out_.Write("\n],\n\"displayTimeUnit\": \"ns\",\n\"otherData\": ");
        out_.WriteJson(AboutTimeline(story_, range_));
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
            Metadata("process_name", {process, kNoThread}, ProcessTitle(story_, process));
            Describe("process_sort_index", {process, kNoThread}, {{"sort_index", process}});
            Metadata("thread_name", {process, kNoThread}, std::string(kNoThreadTitle));
        }
    }

    /// Up to the name's text.
    std::string& BeginHead() {
        std::string& text = out_.Text();
        text += first_ ? "\n{\"name\":\"" : ",\n{\"name\":\"";
        first_ = false;
        return text;
    }

    void EndHead(std::string_view category, const char* phase, std::int64_t time, Track track) {
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
        const std::int64_t elapsed = event.Place().value_or(range_.end) - range_.origin;
        AppendTitle(BeginHead(), event, AppendJsonText);
        EndHead(kTimelineKinds[static_cast<std::size_t>(event.kind)].category, "i", elapsed, track);
        std::string& text = out_.Text();
        text += ",\"s\":\"t\",\"args\":{\"file\":\"";
        AppendJsonText(text, story_.Files()[event.file].name);
        text += '"';
        AppendProcess(text, event);
        AppendArguments(text, event);
        AppendTime(text, event);
        text += "}}";
        out_.Pace();
        ++RateAt(elapsed / kSecond)[static_cast<std::size_t>(event.kind)];
        anyRecord_ = anyRecord_ || event.kind == EventKind::kRecord;
        ++count_;
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
        EndHead(kCrashCategory, "i", crash.time.value_or(range_.end) - range_.origin,
                {ProcessOf(crash), kNoThread});
        Json files = Json::array();
        for (const std::size_t file : crash.files) {
            files.push_back(ToUtf8(story_.Files()[file].name));
        }
        out_.Write(",\"s\":\"g\",\"args\":{\"files\":");
        out_.WriteJson(files);
        std::string& text = out_.Text();
        AppendTime(text, EventOf(crash));
        AppendProcess(text, crash);
        out_.Write("}}");
    }

    /// With the digits and marks that `log` and the page show, and how far the truth may be.
    void AppendTime(std::string& text, const TimelineEvent& event) {
        if (!event.time) {
            text += ",\"time\":\"";
            text += UnknownTime(event);
            text += '"';
            return;
        }
        text += ",\"time\":\"";
        times_.Append(text, event.time, story_.Time().HasWall());
        text += "\",\"mark\":\"";
        text += SignsOf(event.certainty, event.mark == kOverwritten);
        text += '"';
        if (!event.certainty.Exact()) {
            text += ",\"later_by_seconds\":";
            AppendBound(text, event.certainty.ProvenLater());
            text += ",\"earlier_by_seconds\":";
            AppendBound(text, event.certainty.ProvenEarlier());
            text += ",\"date_cut_ns\":";
            AppendDecimal(text, event.certainty.originLater);
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
                    lanes[std::string(kTimelineKinds[kind].entries)] = counts[kind];
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
    TimelineRange range_;
    std::uint64_t count_ = 0;
    bool first_ = true;
    bool anyRecord_ = false;
};

} // namespace

std::uint64_t WriteChromeTrace(const Story& story, const Names& names, Selection& selection, Output& out) {
    ChromeWriter writer(out, names, story, selection);
    writer.Write();
    return writer.Count();
}

} // namespace NimaPost
