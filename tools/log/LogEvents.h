#pragma once

#include "tools/axis/TimelineEvent.h"
#include "tools/log/LogEntry.h"

#include <cstdint>
#include <optional>
#include <string>

namespace NimaPost {

/// Turns the lines of logs into events. A line without a header is of the thread, level and tracer of the
/// line before, if that is not lost.
class LogEvents {
  public:
    /// Holds until the next call. The file is that of the entry's part.
    TimelineEvent Of(const LogEntry& entry);

  private:
    std::optional<std::uint32_t> thread_;
    std::string level_;
    std::string tracer_;
};

} // namespace NimaPost
