#pragma once

#include "ctl/block/Journal.h"
#include "ctl/block/Steering.h"

#include <chrono>
#include <optional>
#include <string>

namespace NimaCtl {

/// Levels that are open for a time. Only those that were closed, or that another recording has opened for its
/// own time, are noted and closed again, the latter by whoever ends last. The turn is taken for the opening
/// and for the closing, not for the time between them.
class TemporaryLevels {
  public:
    /// `isToEnd` ends the waits of the opening, not those of the closing.
    TemporaryLevels(const TraceBlock& block, std::string directory, std::chrono::nanoseconds patience,
                    IsToEnd isToEnd)
        : block_(block),
          directory_(std::move(directory)),
          patience_(patience),
          isToEnd_(std::move(isToEnd)) {}
    TemporaryLevels(const TemporaryLevels&) = delete;
    TemporaryLevels& operator=(const TemporaryLevels&) = delete;
    ~TemporaryLevels();

    /// Returns false, with a reason and nothing opened, if it cannot be done.
    bool Open(const Filter& wanted, std::string& problem);
    /// What has been opened.
    const Filter& Opened() const { return opened_; }
    /// Whether a filter stayed set aside meanwhile, so that levels which are open in it may not be live.
    bool Held() const { return held_; }
    /// Whether all of that is open now, but for what was closed for good since.
    bool AreOpen() const;
    /// Returns false, with a reason, if levels may stay open. The note then stays for the next call.
    bool Close(std::string& problem);

  private:
    const TraceBlock& block_;
    std::string directory_;
    std::chrono::nanoseconds patience_;
    IsToEnd isToEnd_;
    std::optional<Journal> journal_;
    Filter opened_{};
    bool held_ = false;
};

} // namespace NimaCtl
