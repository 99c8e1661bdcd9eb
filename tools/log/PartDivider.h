#pragma once

#include "tools/base/CounterClock.h"
#include "tools/base/InputFile.h"
#include "tools/log/LogParts.h"
#include "tools/log/Quotes.h"
#include "tools/log/Rounds.h"

#include <cstddef>
#include <cstdint>
#include <vector>

namespace NimaPost {

/// A log has one part for each roll; calibration lines beyond these divide nothing, so that memory stays
/// bounded.
inline constexpr std::size_t kMostParts = 1 << 18;

/// Divides a range of lines at calibration lines and runs the clock over each part.
class PartDivider {
  public:
    /// `cut`: what the first line begins with is not its counter's first digit.
    PartDivider(std::uint64_t begin, std::uint64_t fileSize, bool cut = false);

    /// A line is whole if the one before it has an end.
    void Line(const LogLine& line, std::uint64_t offset, bool whole);

    /// What is known of the lines so far of the process that writes.
    LinesBefore SoFar() const;

    /// The parts, the last one ending at `end`.
    std::vector<LogPart> Finish(std::uint64_t end);

  private:
    void Mark(std::uint64_t offset);
    void Close(std::uint64_t at);

    std::vector<LogPart> parts_;
    LogPart part_;
    CounterClock clock_;
    std::uint64_t betweenMarks_;
    std::uint64_t nextMark_;
    bool cut_;
};

/// Those of a range of a file.
std::vector<LogPart> PartsOf(const InputFile& file, const std::vector<Quote>& quotes, ByteRange range,
                             bool cut = false);

} // namespace NimaPost
