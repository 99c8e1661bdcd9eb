#pragma once

#include "tools/base/CounterClock.h"
#include "tools/log/LineReader.h"
#include "tools/log/LogEntry.h"
#include "tools/log/LogFile.h"
#include "tools/log/LogStretches.h"
#include "tools/log/TimePlacer.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace NimaPost {

/// Times of the memory queue's records: the date's second, and within it as early as the order allows. They
/// are not exact, unless the cut microseconds leave one moment of the second.
class QueueClock {
  public:
    std::int64_t Next(const RawDate& date);
    /// From the last time to the latest that its date can mean.
    std::int64_t Later() const { return later_; }

  private:
    std::int64_t last_ = INT64_MIN;
    std::int64_t later_ = 0;
};

/// Reads the lines of one log's placed parts, in their order: all of them, or, with a sieve, those that may
/// pass it.
class LogCursor {
  public:
    /// All of these outlive the cursor; the sieve may be null.
    LogCursor(const std::vector<const LogFile*>& files, const std::vector<LogPart>& parts,
              const std::vector<LogRun>& runs, const LineSieve* sieve)
        : files_(files), runs_(runs), sieve_(sieve), stretches_(files, parts, sieve) {}

    /// False at the end.
    bool Next();
    const LogEntry& Entry() const { return entry_; }

  private:
    bool NextLine();
    void BeginPart(const LogPart& part);
    void Take();
    void TakeTime(const LogLine& line);
    bool TakeIfWanted();

    const std::vector<const LogFile*>& files_;
    const std::vector<LogRun>& runs_;
    const LineSieve* sieve_;
    LogStretches stretches_;
    LogStretch stretch_;
    bool admitted_ = true; ///< the message that was read last
    std::optional<LineReader> reader_;
    std::string_view text_;
    LogEntry entry_;
    Certainty certainty_; ///< of the part's lines that have a time
    std::int64_t origin_ = 0;
    CounterClock clock_;
    QueueClock queueClock_;
};

} // namespace NimaPost
