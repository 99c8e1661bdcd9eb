#pragma once

#include "tools/log/LogProcess.h"
#include "tools/log/TimePlacer.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace NimaPost {

/// A process that writes several logs is found in each of them. They are one where they have a thread in
/// common, fit one clock closely, and neither's log was opened anew before the other began.
class JoinedLogs {
  public:
    /// Joins processes and lays the origins of their runs on each other, so that counters order their lines.
    /// The processes' own times are then out of date.
    JoinedLogs(const std::vector<LogProcess>& processes, std::vector<LogRun>& runs);

    /// Which of the processes stands for this one: itself, or one that began earlier.
    std::size_t First(std::size_t process) const { return first_[process]; }

  private:
    struct Link {
        std::size_t run;
        std::size_t otherRun;
        std::int64_t shift; ///< of the other run's origin on this one's axis
    };

    std::optional<CommonClock> MayJoin(const std::vector<LogProcess>& processes, std::size_t earlier,
                                       std::size_t later) const;

    std::vector<std::size_t> first_;
    std::vector<std::vector<std::size_t>> logs_; ///< of all that a process stands for
};

} // namespace NimaPost
