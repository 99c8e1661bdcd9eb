#include "tools/babeltrace/ClockedTraces.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/story/MergedStory.h"
#include "tools/timeline/Tracks.h"

#include <algorithm>
#include <limits>
#include <map>
#include <utility>

namespace NimaPost {

namespace {

constexpr std::size_t kCrashKind = kEventKinds;

constexpr std::size_t kNoThread = 0;
constexpr std::size_t NumberOf(std::size_t thread) {
    return thread + 1;
}

std::string WithoutZeros(std::string_view bytes) {
    std::string text = ToUtf8(bytes);
    for (std::size_t zero = text.find('\0'); zero != std::string::npos; zero = text.find('\0', zero)) {
        text.replace(zero, 1, "\xEF\xBF\xBD");
    }
    return text;
}

std::int64_t Nanoseconds(std::int64_t seconds, std::int64_t more) {
    constexpr std::int64_t kMost = std::numeric_limits<std::int64_t>::max() / kSecond - 1;
    const bool bounded = seconds != Certainty::kUnbounded && seconds < kMost;
    return bounded ? seconds * kSecond + more : Certainty::kUnbounded;
}

/// The event as it is kept, but for its texts.
TracedEvent Timed(const TimelineEvent& event) {
    TracedEvent traced;
    traced.time = event.Place().value_or(0);
    if (event.time) {
        traced.earlier = Nanoseconds(event.certainty.ProvenEarlier(), 0);
        traced.later = Nanoseconds(event.certainty.ProvenLater(), event.certainty.originLater);
    } else {
        traced.earlier = Certainty::kUnbounded;
        traced.later = Certainty::kUnbounded;
    }
    traced.kind = static_cast<std::size_t>(event.kind);
    traced.file = event.file;
    traced.arguments = event.arguments;
    return traced;
}

} // namespace

std::string_view TracedKind(std::size_t kind) {
    return kind == kCrashKind ? kCrashCategory : kTimelineKinds[kind].category;
}

void TracedEvents::Add(const TracedEvent& event, bool hasTime, std::optional<std::size_t> clock) {
    rows_.push_back(Row{event.time, event.earlier, event.later, clock.value_or(kNoClock), texts_.size(),
                        arguments_.size(), static_cast<std::uint32_t>(event.arguments.size()),
                        static_cast<std::uint32_t>(event.thread), static_cast<std::uint32_t>(event.file),
                        static_cast<std::uint8_t>(event.kind), hasTime});
    for (const char* text : {event.level, event.name, event.text, event.mark}) {
        texts_.append(text, std::char_traits<char>::length(text) + 1);
    }
    arguments_.insert(arguments_.end(), event.arguments.begin(), event.arguments.end());
}

void TracedEvents::Arrange(std::int64_t end) {
    std::map<std::size_t, std::int64_t> begins;
    for (const Row& row : rows_) {
        if (row.clock != kNoClock && row.hasTime) {
            const auto begin = begins.try_emplace(row.clock, row.time).first;
            begin->second = std::min(begin->second, row.time);
        }
    }
    for (Row& row : rows_) {
        row.time = row.hasTime ? row.time : end;
        if (row.clock == kNoClock) {
            // The last clock that had begun by then, as for what is tied to the end of a log.
            row.clock = begins.empty() ? 0 : begins.begin()->first;
            for (const auto& [clock, begin] : begins) {
                row.clock = begin <= row.time ? clock : row.clock;
            }
        }
    }
    std::stable_sort(rows_.begin(), rows_.end(), [](const Row& a, const Row& b) {
        return std::pair(a.clock, a.time) < std::pair(b.clock, b.time);
    });
}

TracedEvent TracedEvents::operator[](std::size_t index) const {
    const Row& row = rows_[index];
    TracedEvent event;
    event.time = row.time;
    event.earlier = row.earlier;
    event.later = row.later;
    event.kind = row.kind;
    event.thread = row.thread;
    event.file = row.file;
    const char* text = texts_.c_str() + row.text;
    for (const char** member : {&event.level, &event.name, &event.text, &event.mark}) {
        *member = text;
        text += std::char_traits<char>::length(text) + 1;
    }
    event.arguments = std::span(arguments_).subspan(row.arguments, row.argumentCount);
    return event;
}

ClockedTraces::ClockedTraces(const Story& story, const Names& names, std::int64_t utcOffset)
    : utcOffset_(utcOffset) {
    Threads threads(names);
    processes_.resize(DeviceProcess(story));
    story.ForEach([&](const TimelineEvent& event) {
        Take(event, static_cast<std::size_t>(event.kind), threads);
        return true;
    });
    for (const Crash& crash : story.Crashes()) {
        Take(EventOf(crash), kCrashKind, threads);
    }
    threads_.resize(threads.Count() + 1);
    threads_[kNoThread] = kNoThreadTitle;
    threads.ForEach([&](const Threads::Thread& thread) {
        threads_[NumberOf(thread.number)] = WithoutZeros(ThreadTitle(thread));
    });
    for (const FolderFile& file : story.Files()) {
        files_.push_back(WithoutZeros(file.name));
    }
    for (std::size_t number = 1; number <= processes_.size(); ++number) {
        processes_[number - 1].Arrange(std::max(end_, base_));
        Divide(story, number);
    }
}

void ClockedTraces::Take(const TimelineEvent& event, std::size_t kind, Threads& threads) {
    TracedEvent traced = Timed(event);
    const auto thread = threads.NumberOf(event);
    traced.kind = kind;
    traced.thread = thread ? NumberOf(*thread) : kNoThread;
    if (event.Place()) {
        traced.time -= utcOffset_;
        end_ = std::max(end_, traced.time);
        base_ = std::min(base_, traced.time);
    }
    const std::string level = WithoutZeros(event.level);
    const std::string name = WithoutZeros(event.name);
    const std::string text = WithoutZeros(event.text);
    const std::string mark = event.time ? SignsOf(event.certainty, event.mark == kOverwritten) : "";
    traced.level = level.c_str();
    traced.name = name.c_str();
    traced.text = text.c_str();
    traced.mark = mark.c_str();
    processes_[event.process.value_or(processes_.size()) - 1].Add(traced, event.Place().has_value(),
                                                                  event.clock);
}

void ClockedTraces::Divide(const Story& story, std::size_t number) {
    const TracedEvents& events = processes_[number - 1];
    const std::size_t first = traces_.size();
    for (std::size_t i = 0; i < events.Size(); ++i) {
        if (i == 0 || events.ClockOf(i) != events.ClockOf(i - 1)) {
            ClockedTrace trace;
            if (number != DeviceProcess(story)) {
                trace.process = number;
                const ProcessFacts& facts = story.Time().AllProcesses()[number];
                trace.boot = facts.boot;
                trace.bootDoubt = DoubtOf(facts);
                trace.doubts = DoubtsInCodes(facts);
            }
            trace.events = &events;
            trace.begin = i;
            traces_.push_back(std::move(trace));
        }
        traces_.back().end = i + 1;
        traces_.back().threads.insert(events[i].thread);
    }
    for (std::size_t i = first; i < traces_.size() && traces_.size() > first + 1; ++i) {
        traces_[i].clock = i - first + 1;
    }
}

} // namespace NimaPost
