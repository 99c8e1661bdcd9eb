#pragma once

#include "tools/base/WallClock.h"
#include "tools/log/LogEntry.h"
#include "tools/log/LogFollower.h"
#include "tools/log/Quotes.h"

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace NimaPost {

/// Times of lines as they come, on the clock of what the log already holds. The counter tells a time within a
/// second; of the times that are left, the line gets the last one that is not in the future, since it has
/// just come. That the machine's clock is the device's is an assumption.
class FollowClock {
  public:
    /// Reads what is in the file so far, if there is one. What stands at `from` and after it is still to
    /// come.
    FollowClock(const std::string& path, std::uint64_t from);

    /// Sets the time of an entry, the line taken apart, if a calibration line was seen. What stands in a
    /// message loses its header. `now` is local time, as dates of the log are.
    void Place(LogEntry& entry, const FollowedLine& line, std::int64_t now);

  private:
    /// What is known of the process that writes, and its clock at its last line.
    struct State {
        std::optional<WallOffset> wall;
        std::int64_t elapsed = 0;
        std::int64_t counter = 0;
        std::vector<std::uint32_t> threads; ///< ascending

        std::int64_t Time() const { return elapsed + wall->Earliest(); }
    };
    /// A calibration line of which later lines may show that a message holds it, or where that message ends.
    struct Doubt {
        std::string line;
        std::uint64_t offset = 0;
        std::string following; ///< whole lines
        State before;
        bool isText = false; ///< else it was taken for an opening
    };

    void Settle(const FollowedLine& line);
    bool IsText(const FollowedLine& line, const LogLine& calibration, const RawDate& date, std::int64_t now);
    bool IsOfAnotherTime(const RawDate& date, std::int64_t now) const;
    void Open(const LogLine& calibration, const RawDate& date);
    void Advance(LogEntry& entry, std::int64_t now);
    void NoteThread(std::uint32_t thread);
    static LinesBefore Before(const State& state);

    State state_;
    std::optional<Doubt> doubt_;
    std::uint64_t textEnd_ = 0; ///< up to there lines stand in a message
    std::set<std::pair<std::int64_t, std::uint32_t>> openings_;
    bool deviceEnds_ = false; ///< the log's first line ends as the device ends lines itself
};

} // namespace NimaPost
