#include "tools/timeline/Tracks.h"

#include "tools/base/FindingsJson.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/base/WallClock.h"

#include <algorithm>

namespace NimaPost {

TimelineRange RangeOf(const Story& story, Selection& selection, const SelectedEvents::Show& visitor) {
    TimelineRange range{INT64_MAX, INT64_MIN};
    const auto widen = [&](const std::optional<std::int64_t>& time) {
        range.origin = std::min(range.origin, time.value_or(INT64_MAX));
        range.end = std::max(range.end, time.value_or(INT64_MIN));
    };
    ForEachSelected(story, selection, [&](const TimelineEvent& event) {
        widen(event.Place());
        visitor(event);
    });
    for (const Crash& crash : story.Crashes()) {
        if (selection.Takes(crash)) {
            widen(crash.time);
        }
    }
    range.origin = range.origin == INT64_MAX ? 0 : range.origin;
    range.end = std::max(range.end, range.origin);
    return range;
}

std::size_t DeviceProcess(const Story& story) {
    return story.Time().AllProcesses().All().size() + 1;
}

std::string ProcessTitle(const Story& story, std::size_t process) {
    if (process == DeviceProcess(story)) {
        return story.Time().HasWall() ? "device" : "device (no wall clock)";
    }
    const ProcessFacts& facts = story.Time().AllProcesses()[process];
    const char* const probable = facts.linesProbable && facts.recordsProbable
                                     ? ", its lines and records probably"
                                 : facts.linesProbable   ? ", its lines probably"
                                 : facts.recordsProbable ? ", its records probably"
                                                         : "";
    return ProcessInWords(process, facts) + probable;
}

std::string ThreadTitle(const Threads::Thread& thread) {
    const std::string id = Hex32(thread.id);
    return thread.name.empty() ? id : thread.name + " " + id;
}

std::string_view UnknownTime(const TimelineEvent& event) {
    return event.place ? "unknown, put in front of the line after it" : "unknown, put at the end";
}

Json AboutTimeline(const Story& story, const TimelineRange& range) {
    Json files = Json::array();
    for (const FolderFile& file : story.Files()) {
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
            {"origin", story.Time().HasWall() ? Json(WallTimeIso(range.origin)) : Json()},
            {"clock", FindingsJson(story.Time().Statement())},
            {"files", files}};
}

} // namespace NimaPost
