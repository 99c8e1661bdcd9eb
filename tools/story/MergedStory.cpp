#include "tools/story/MergedStory.h"

#include <algorithm>
#include <limits>

namespace NimaPost {

namespace {

bool IsText(EventKind kind) {
    return kind == EventKind::kText;
}

} // namespace

MergedStory::MergedStory(const Story& story, Selection& selection, SelectedEvents::Admits admits)
    : story_(story), selection_(selection), admits_(std::move(admits)), order_(story.Time().AllProcesses()) {
    FindLateCrashes();
}

/// What puts a crash after the one before it outweighs its date.
void MergedStory::FindLateCrashes() {
    std::optional<Key> latest;
    Place place; // After those before it, and all that their processes left.
    for (const Crash& crash : story_.Crashes()) {
        const Key key = order_.KeyOf(crash.time, crash.boot);
        ++place.after;
        if (latest && key < *latest) {
            late_.emplace(crash.files.front(), place);
        }
        latest = std::max(latest.value_or(key), key);
        const auto last = crash.process ? story_.Time().AllProcesses()[*crash.process].last : std::nullopt;
        place.key = std::max({place.key, key, last ? order_.KeyOf(last, crash.boot) : key});
    }
}

MergedStory::Place MergedStory::PlaceOf(const TimelineEvent& event) const {
    const auto found = late_.find(event.file);
    Place place = found != late_.end() ? found->second : Place{KeyOf(event), 0, 0};
    place.time = event.time.value_or(0);
    return place;
}

MergedStory::Key MergedStory::KeyOf(const TimelineEvent& event) const {
    return order_.KeyOf(event.Place(), event.boot);
}

void MergedStory::KeepOthers() {
    others_.clear();
    SelectedEvents selected(selection_, admits_, [&](const TimelineEvent& event) {
        others_.emplace_back(PlaceOf(event), KeptEvent(event));
    });
    story_.ForEach([](EventKind kind) { return !IsText(kind); },
                   [&](const TimelineEvent& event) {
                       selected.Take(event);
                       return true;
                   });
    for (const Crash& crash : story_.Crashes()) {
        selected.Take(EventOf(crash));
    }
    selected.Finish();
    std::stable_sort(others_.begin(), others_.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
}

void MergedStory::ForEach(const std::function<void(const TimelineEvent&)>& visitor) {
    selection_.BeginCount();
    KeepOthers();
    auto next = others_.begin();
    Key reached{0, std::numeric_limits<std::int64_t>::min()};
    SelectedEvents selected(selection_, admits_, [&](const TimelineEvent& event) {
        // The order of a log's lines stands, whatever their times are.
        reached = event.Place() ? std::max(reached, KeyOf(event)) : reached;
        for (; next != others_.end() && next->first.key < reached; ++next) {
            visitor(next->second.Get());
        }
        visitor(event);
    });
    story_.ForEach(IsText, [&](const TimelineEvent& event) {
        selected.Take(event);
        return true;
    });
    selected.Finish();
    for (; next != others_.end(); ++next) {
        visitor(next->second.Get());
    }
}

TimelineEvent EventOf(const Crash& crash) {
    TimelineEvent event;
    event.kind = EventKind::kRecord;
    event.time = crash.time;
    event.certainty = crash.certainty;
    event.file = crash.files.front();
    event.thread = crash.thread;
    event.boot = crash.boot;
    event.process = crash.process;
    event.level = kCrashLevel;
    event.text = crash.title;
    return event;
}

Landmarks LandmarksOf(const Story& story, bool withEnds) {
    Landmarks landmarks;
    landmarks.hasWall = story.Time().HasWall();
    landmarks.boots = BeginningsOf(story.Time().AllProcesses());
    for (const Crash& crash : story.Crashes()) {
        landmarks.crashes.push_back(crash.time);
        if (crash.time) {
            landmarks.Widen(*crash.time);
        }
    }
    if (withEnds) {
        story.ForEach([&](const TimelineEvent& event) {
            if (event.time) {
                landmarks.Widen(*event.time);
            }
            return true;
        });
    }
    return landmarks;
}

} // namespace NimaPost
