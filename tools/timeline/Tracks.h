#pragma once

#include "tools/base/Certainty.h"
#include "tools/base/Json.h"
#include "tools/story/SelectedEvents.h"
#include "tools/story/Selection.h"
#include "tools/story/Story.h"
#include "tools/story/Threads.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace NimaPost {

/// What every form of a timeline calls the same.
struct TimelineKind {
    std::string_view category; ///< of its events
    std::string_view entries;  ///< in words, of a counter
};
inline constexpr std::array kTimelineKinds{
    TimelineKind{"text", "text lines"}, TimelineKind{"binary", "binary records"},
    TimelineKind{"ring", "ring events"}, TimelineKind{"record", "event records"}};
static_assert(kTimelineKinds.size() == kEventKinds, "one for each kind");
inline constexpr std::string_view kCrashCategory = "crash";
inline constexpr std::string_view kNoThreadTitle = "no thread";
inline constexpr std::string_view kUnboundedInWords = "unbounded";

/// The part of the axis that a timeline shows. What has neither time nor place stands at its end.
struct TimelineRange {
    std::int64_t origin = 0;
    std::int64_t end = 0;
};

/// Goes through everything that is selected, and shows `visitor` each event on the way.
TimelineRange RangeOf(const Story& story, Selection& selection, const SelectedEvents::Show& visitor);

/// The number of the process that stands for what is of no known process.
std::size_t DeviceProcess(const Story& story);
std::string ProcessTitle(const Story& story, std::size_t process);
std::string ThreadTitle(const Threads::Thread& thread);
/// In words, of an event without a time.
std::string_view UnknownTime(const TimelineEvent& event);

/// An event's name; `append` adds each part of it.
template <class Append>
void AppendTitle(std::string& text, const TimelineEvent& event, const Append& append) {
    if (event.kind == EventKind::kText) {
        append(text, event.level);
        text += event.level.empty() ? "" : " ";
        append(text, event.name.empty() ? std::string_view("text") : event.name);
        return;
    }
    append(text, event.name);
    text += event.name.empty() ? "" : ": ";
    append(text, event.name.empty() && event.text.empty() ? std::string_view("text") : event.text);
}

/// What is told of a timeline as a whole: its marks, its clock, the files that it is made of.
Json AboutTimeline(const Story& story, const TimelineRange& range);

} // namespace NimaPost
