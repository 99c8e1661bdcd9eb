#pragma once

#include "tools/log/LogParts.h"

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace NimaPost {

/// Parts whose times count from one origin.
struct LogRun {
    std::optional<WallOffset> wall; ///< empty where no date tells
    bool collected = false;         ///< of the boot in which the files were collected
};

/// The wall clock was set while a process ran, or another process with the same threads went on.
struct ClockSetting {
    std::size_t oldRun = 0;
    std::int64_t after = 0; ///< the last moment on that run's axis of which it is known that it was before
    std::size_t newRun = 0;
    bool mayBeRestart = false;
};

/// The wall-clock origin of a run, or 0.
std::int64_t OriginOf(const LogRun& run);

/// Places the parts of one log, which stand in the order of time, on the clocks of their processes: finds out
/// how each follows the one before and what their dates say together (doc/clock.md).
class TimePlacer {
  public:
    explicit TimePlacer(std::vector<LogRun>& runs) : runs_(runs) {}

    void Place(std::vector<LogPart>& parts);

    const std::vector<ClockSetting>& Settings() const { return settings_; }

  private:
    PartLink LinkOf(const LogPart& part, std::span<const LogPart> fromHereOn) const;
    bool IsRolled(const LogPart& part, std::span<const LogPart> fromHereOn) const;
    bool FitsClosely(const LogPart& part) const;
    bool FitsAtOnce(const LogPart& part) const;
    WallOffset::Fit FitOf(const LogPart& part) const;
    void PlaceDated(LogPart& part);
    void HangBefore(LogPart& dated);
    void HangAfter(LogPart& part);
    void BeginRun(LogPart& part, LogRun run = {});
    std::int64_t StartAfter(const LogPart& part) const;

    std::vector<LogRun>& runs_;
    LogPart* before_ = nullptr;     ///< the part before this one
    LogPart* dated_ = nullptr;      ///< the last one that the clock ran through
    std::vector<LogPart*> waiting_; ///< without a date of their own, since `dated_`
    std::vector<ClockSetting> settings_;
};

} // namespace NimaPost
