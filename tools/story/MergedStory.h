#pragma once

#include "tools/story/EventOrder.h"
#include "tools/story/SelectedEvents.h"
#include "tools/story/Selection.h"
#include "tools/story/Story.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

namespace NimaPost {

/// The level of the events that stand for crashes.
inline constexpr std::string_view kCrashLevel = "CRASH";

/// What a selection takes of a story, all kinds in one order of boots and time, crashes among them. Text logs
/// are read while they are handed over; everything else that is taken is in memory meanwhile.
class MergedStory {
  public:
    /// All of these outlive the object.
    MergedStory(const Story& story, Selection& selection, SelectedEvents::Admits admits);

    void ForEach(const std::function<void(const TimelineEvent&)>& visitor);

  private:
    using Key = EventOrder::Key;
    /// Among everything: after all that has this key, if so many crashes come before it.
    struct Place {
        Key key{0, INT64_MIN};
        std::size_t after = 0; ///< 0 for what stands where its time says
        std::int64_t time = 0;

        bool operator<(const Place& other) const {
            return std::tie(key, after, time) < std::tie(other.key, other.after, other.time);
        }
    };

    Key KeyOf(const TimelineEvent& event) const;
    Place PlaceOf(const TimelineEvent& event) const;
    void FindLateCrashes();
    void KeepOthers();

    const Story& story_;
    Selection& selection_;
    SelectedEvents::Admits admits_;
    EventOrder order_;
    std::vector<std::pair<Place, KeptEvent>> others_;
    /// Where crashes stand that have an earlier time than one before them, with what else their files tell.
    std::map<std::size_t, Place> late_;
};

/// A crash as an event. The views are those of the crash.
TimelineEvent EventOf(const Crash& crash);

/// Where the moments are that times can be counted from. The ends cost a reading of the logs.
Landmarks LandmarksOf(const Story& story, bool withEnds);

} // namespace NimaPost
