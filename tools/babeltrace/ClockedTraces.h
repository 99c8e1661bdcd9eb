#pragma once

#include "tools/names/Names.h"
#include "tools/story/Story.h"
#include "tools/story/Threads.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// What happened, with times in nanoseconds. Texts are UTF-8 without a zero byte.
struct TracedEvent {
    std::int64_t time = 0;
    std::int64_t earlier = 0; ///< by how much the truth may be before that, and after it; -1 is unbounded
    std::int64_t later = 0;
    std::size_t kind = 0;   ///< as `TracedKind` names it
    std::size_t thread = 0; ///< in the device's threads
    std::size_t file = 0;   ///< in the device's files
    const char* level = "";
    const char* name = "";
    const char* text = "";
    const char* mark = ""; ///< the signs that stand with the time
    std::span<const std::uint32_t> arguments;
};

/// What events are called: the kinds of the timeline, and crashes.
inline constexpr std::size_t kTracedKinds = kEventKinds + 1;
std::string_view TracedKind(std::size_t kind);

/// Events in little memory, sorted by clock and time once they are all there.
class TracedEvents {
  public:
    void Add(const TracedEvent& event, bool hasTime, std::optional<std::size_t> clock);
    /// Settles the clocks of events that have none, puts what has no time at `end`, and sorts.
    void Arrange(std::int64_t end);

    std::size_t Size() const { return rows_.size(); }
    std::size_t ClockOf(std::size_t index) const { return rows_[index].clock; }
    /// The views hold as long as the object.
    TracedEvent operator[](std::size_t index) const;

  private:
    static constexpr std::size_t kNoClock = std::numeric_limits<std::size_t>::max();

    struct Row {
        std::int64_t time = 0;
        std::int64_t earlier = 0;
        std::int64_t later = 0;
        std::size_t clock = 0;
        std::size_t text = 0; ///< where level, name, text and mark stand, each with a zero after it
        std::size_t arguments = 0;
        std::uint32_t argumentCount = 0;
        std::uint32_t thread = 0;
        std::uint32_t file = 0;
        std::uint8_t kind = 0;
        bool hasTime = false;
    };

    std::vector<Row> rows_;
    std::string texts_;
    std::vector<std::uint32_t> arguments_;
};

/// What one process has left, on one clock: its times never fall.
struct ClockedTrace {
    std::optional<std::size_t> process; ///< from 1; empty for what is of no known process
    std::optional<std::size_t> boot;
    std::string_view bootDoubt;       ///< "probably", "perhaps" or empty
    std::string doubts;               ///< what else is only probable, as codes
    std::optional<std::size_t> clock; ///< from 1; empty where it was not set
    const TracedEvents* events = nullptr;
    std::size_t begin = 0; ///< its events
    std::size_t end = 0;
    std::set<std::size_t> threads; ///< those that have events, in the device's threads
};

/// A device's story as traces.
class ClockedTraces {
  public:
    /// Times are earlier by `utcOffset`, which makes the device's local time UTC.
    ClockedTraces(const Story& story, const Names& names, std::int64_t utcOffset);

    const std::vector<ClockedTrace>& All() const { return traces_; }
    const std::vector<std::string>& ThreadTitles() const { return threads_; }
    const std::vector<std::string>& FileNames() const { return files_; }
    /// The earliest time, at most 0.
    std::int64_t Base() const { return base_; }

  private:
    void Take(const TimelineEvent& event, std::size_t kind, Threads& threads);
    void Divide(const Story& story, std::size_t number);

    std::vector<TracedEvents> processes_; ///< the last one of what is of no known process
    std::vector<ClockedTrace> traces_;
    std::vector<std::string> threads_; ///< the first one for what is of no thread
    std::vector<std::string> files_;
    std::int64_t utcOffset_ = 0;
    std::int64_t base_ = 0;
    std::int64_t end_ = std::numeric_limits<std::int64_t>::min();
};

} // namespace NimaPost
