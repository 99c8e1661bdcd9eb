#pragma once

#include "tools/base/CounterClock.h"
#include "tools/log/LineSieve.h"
#include "tools/log/LogFile.h"
#include "tools/log/LogParts.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace NimaPost {

/// Some lines of a part of a log, one after the other, and the clock in front of them.
struct LogStretch {
    const LogPart* part = nullptr;
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    CounterClock clock;
};

/// Goes through the placed parts of one log in their order: each as a whole, or, with a sieve, only stretches
/// of them with messages that may pass it. A message is never divided: it may begin in one part and end in
/// the next.
class LogStretches {
  public:
    /// All of these outlive the object; the sieve may be null.
    LogStretches(const std::vector<const LogFile*>& files, const std::vector<LogPart>& parts,
                 const LineSieve* sieve)
        : files_(files), parts_(parts), sieve_(sieve) {}

    /// False at the end.
    bool Next(LogStretch& stretch);

  private:
    /// Where a stretch begins: at a part's begin, or at one of its marks.
    struct Place {
        std::size_t part = 0;
        std::size_t mark = 0; ///< from 1; 0 is the part's begin

        bool operator==(const Place& other) const { return part == other.part && mark == other.mark; }
    };

    Place After(const Place& place) const;
    LogStretch StretchAt(const Place& place) const;
    bool BeginsInside(const Place& place) const;
    bool PassesSieve();
    LineSieve::Needs NeedsIn(const LogStretch& stretch);

    const std::vector<const LogFile*>& files_;
    const std::vector<LogPart>& parts_;
    const LineSieve* sieve_;
    Place next_;
    /// Up to here messages hang together, and it was decided that they are read.
    Place decided_;
    std::vector<char> buffer_;
};

} // namespace NimaPost
