#pragma once

#include "tools/log/LogEntry.h"

#include <cstdint>
#include <optional>
#include <string>

namespace NimaPost {

/// Times of lines as they come, on the clock of what the log already holds. The counter tells a time within a
/// second; of the times that are left, the line gets the last one that is not in the future, since it has
/// just come. That the machine's clock is the device's is an assumption.
class FollowClock {
  public:
    /// Reads what is in the file so far, if there is one.
    explicit FollowClock(const std::string& path);

    /// Sets the entry's time, if a calibration line was seen. `now` is local time, as dates of the log are.
    void Place(LogEntry& entry, std::int64_t now);

  private:
    struct Moment {
        std::int64_t counter = 0;
        std::int64_t time = 0;
    };

    enum class Reading : unsigned char { kNoDate, kDate, kText };
    Reading TakeDate(const LogLine& line, std::int64_t now);

    std::optional<Moment> last_;
    std::int64_t originLater_ = 0;
};

} // namespace NimaPost
