#include "tools/timeline/PerfettoTrace.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/base/TimePrinter.h"
#include "tools/story/MergedStory.h"
#include "tools/story/SelectedEvents.h"
#include "tools/story/Threads.h"
#include "tools/timeline/PerfettoPackets.h"
#include "tools/timeline/SecondCounts.h"
#include "tools/timeline/Tracks.h"

#include <array>
#include <map>
#include <set>
#include <utility>

namespace NimaPost {

namespace {

/// Ranges of track numbers: each kind of track has those from its own on.
enum class TrackKind : std::uint64_t {
    kProcess = 1,
    kWithoutThread,
    kCrashes,
    kThread,
    kKindCounter,
    kCounter
};

constexpr std::uint64_t TrackOf(TrackKind kind, std::size_t number) {
    return static_cast<std::uint64_t>(kind) << 32 | number;
}

/// No firmware has more; bytes that are none of a name must not become ever more counters.
constexpr std::size_t kMostComponents = 1000;

class PerfettoWriter {
  public:
    PerfettoWriter(Output& out, const Names& names, const Story& story, Selection& selection)
        : packets_(out),
          threads_(names),
          story_(story),
          selection_(selection),
          device_(DeviceProcess(story)) {}

    void Write() {
        range_ = RangeOf(story_, selection_, [&](const TimelineEvent& event) {
            threads_.NumberOf(event);
            used_.insert(event.process.value_or(device_));
        });
        // Dates stay what they are; what is not dated begins at 0.
        shift_ = story_.Time().HasWall() && range_.origin >= 0 ? 0 : range_.origin;
        Json about = AboutTimeline(story_, range_);
        about.erase("tool"); // It stands in the first packet.
        for (const auto& [name, value] : about.items()) {
            packets_.About(name, value);
        }
        if (story_.Time().HasWall()) {
            packets_.Date(range_.origin - shift_, range_.origin);
        }
        Tracks();
        ForEachSelected(story_, selection_, [&](const TimelineEvent& event) { Instant(event); });
        for (const Crash& crash : story_.Crashes()) {
            if (selection_.Takes(crash)) {
                Mark(crash);
            }
        }
        Counters();
    }

    std::uint64_t Count() const { return count_; }

  private:
    using Annotations = PerfettoPackets::Annotations;

    void Tracks() {
        std::set<std::size_t> crashed;
        for (const Crash& crash : story_.Crashes()) {
            if (selection_.Takes(crash)) {
                crashed.insert(crash.process.value_or(device_));
            }
        }
        used_.insert(device_);
        used_.insert(crashed.begin(), crashed.end());
        for (const std::size_t process : used_) {
            const std::uint64_t track = TrackOf(TrackKind::kProcess, process);
            packets_.Process(track, process, ProcessTitle(story_, process));
            packets_.Other(TrackOf(TrackKind::kWithoutThread, process), track, kNoThreadTitle);
            if (crashed.contains(process)) {
                packets_.Other(TrackOf(TrackKind::kCrashes, process), track, "crashes");
            }
        }
        threads_.ForEach([&](const Threads::Thread& thread) {
            const std::size_t process = thread.process.value_or(device_);
            // Other numbers than the processes have: a thread with its process's number is taken for its
            // first.
            packets_.Thread(TrackOf(TrackKind::kThread, thread.number), TrackOf(TrackKind::kProcess, process),
                            process, device_ + 1 + thread.number, ThreadTitle(thread));
        });
    }

    std::int64_t Place(const std::optional<std::int64_t>& time) const {
        return time.value_or(range_.end) - shift_;
    }

    void Instant(const TimelineEvent& event) {
        const auto kind = static_cast<std::size_t>(event.kind);
        const auto thread = threads_.NumberOf(event);
        const std::uint64_t track = thread
                                        ? TrackOf(TrackKind::kThread, *thread)
                                        : TrackOf(TrackKind::kWithoutThread, event.process.value_or(device_));
        title_.clear();
        AppendTitle(title_, event, [](std::string& text, std::string_view bytes) { text += ToUtf8(bytes); });
        packets_.Instant(track, Place(event.Place()), kTimelineKinds[kind].category, title_,
                         [&](Annotations& annotations) {
                             annotations.Word("file", ToUtf8(story_.Files()[event.file].name));
                             Process(annotations, event);
                             Arguments(annotations, event);
                             Time(annotations, event);
                         });
        CountIn(event, (event.Place().value_or(range_.end) - range_.origin) / kSecond);
        ++count_;
    }

    void CountIn(const TimelineEvent& event, std::int64_t second) {
        kinds_[static_cast<std::size_t>(event.kind)].Add(second);
        if (event.name.empty()) {
            return;
        }
        name_.first = event.kind;
        name_.second = event.name;
        auto component = components_.find(name_);
        if (component == components_.end() && components_.size() < kMostComponents) {
            component = components_.try_emplace(name_).first;
        }
        if (component != components_.end()) {
            component->second.Add(second);
        }
    }

    static void Arguments(Annotations& annotations, const TimelineEvent& event) {
        if (event.kind == EventKind::kText || !event.level.empty()) {
            annotations.Word("level", ToUtf8(event.level));
        }
        if (event.kind == EventKind::kText) {
            annotations.Text("message", ToUtf8(event.text));
        } else {
            for (std::size_t i = 0; i < event.arguments.size(); ++i) {
                annotations.Pointer("argument " + std::to_string(i + 1), event.arguments[i]);
            }
        }
        if (!event.mark.empty()) {
            annotations.Word("state", ToUtf8(event.mark));
        }
    }

    template <class Thing>
    static void Process(Annotations& annotations, const Thing& thing) {
        if (thing.boot) {
            annotations.Number("boot", *thing.boot);
        }
        if (thing.process) {
            annotations.Number("process", *thing.process);
        }
    }

    /// With the digits and marks that are shown everywhere, and how far the truth may be.
    void Time(Annotations& annotations, const TimelineEvent& event) {
        if (!event.time) {
            annotations.Word("time", UnknownTime(event));
            return;
        }
        digits_.clear();
        times_.Append(digits_, event.time, story_.Time().HasWall());
        annotations.Text("time", digits_);
        annotations.Word("mark", SignsOf(event.certainty, event.mark == kOverwritten));
        if (!event.certainty.Exact()) {
            Bound(annotations, "later_by_seconds", event.certainty.ProvenLater());
            Bound(annotations, "earlier_by_seconds", event.certainty.ProvenEarlier());
            annotations.Number("date_cut_ns", static_cast<std::uint64_t>(event.certainty.originLater));
        }
    }

    static void Bound(Annotations& annotations, std::string_view name, std::int64_t seconds) {
        if (seconds == Certainty::kUnbounded) {
            annotations.Word(name, kUnboundedInWords);
        } else {
            annotations.Number(name, static_cast<std::uint64_t>(seconds));
        }
    }

    void Mark(const Crash& crash) {
        packets_.Instant(TrackOf(TrackKind::kCrashes, crash.process.value_or(device_)), Place(crash.time),
                         kCrashCategory, ToUtf8(crash.title), [&](Annotations& annotations) {
                             for (const std::size_t file : crash.files) {
                                 annotations.Word("file", ToUtf8(story_.Files()[file].name));
                             }
                             Time(annotations, EventOf(crash));
                             Process(annotations, crash);
                         });
    }

    void Counters() {
        for (std::size_t kind = 0; kind < kEventKinds; ++kind) {
            Counter(TrackOf(TrackKind::kKindCounter, kind), Rate(kind), kinds_[kind]);
        }
        std::size_t number = 0;
        for (auto& [component, counts] : components_) {
            Counter(TrackOf(TrackKind::kCounter, number++),
                    Rate(static_cast<std::size_t>(component.first)) + ": " + ToUtf8(component.second),
                    counts);
        }
    }

    static std::string Rate(std::size_t kind) {
        return std::string(kTimelineKinds[kind].entries) + " per second";
    }

    void Counter(std::uint64_t track, std::string_view title, SecondCounts& counts) {
        bool described = false;
        counts.ForEach([&](std::int64_t second, std::uint32_t count) {
            if (!std::exchange(described, true)) {
                packets_.Counter(track, TrackOf(TrackKind::kProcess, device_), title);
            }
            packets_.Count(track, range_.origin - shift_ + second * kSecond, count);
        });
    }

    PerfettoPackets packets_;
    Threads threads_;
    const Story& story_;
    Selection& selection_;
    std::size_t device_; ///< the process for what is of no known process
    std::set<std::size_t> used_;
    std::array<SecondCounts, kEventKinds> kinds_;
    std::map<std::pair<EventKind, std::string>, SecondCounts> components_;
    std::pair<EventKind, std::string> name_; ///< what is looked for in `components_`
    TimePrinter times_;
    std::string title_;
    std::string digits_;
    TimelineRange range_;
    std::int64_t shift_ = 0;
    std::uint64_t count_ = 0;
};

} // namespace

std::uint64_t WritePerfettoTrace(const Story& story, const Names& names, Selection& selection, Output& out) {
    PerfettoWriter writer(out, names, story, selection);
    writer.Write();
    return writer.Count();
}

} // namespace NimaPost
