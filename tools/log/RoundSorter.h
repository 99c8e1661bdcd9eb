#pragma once

#include "tools/base/InputFile.h"
#include "tools/log/LogParts.h"
#include "tools/log/Quotes.h"
#include "tools/log/Rounds.h"

#include <cstddef>
#include <utility>
#include <vector>

namespace NimaPost {

/// The rounds of a file in the order of time. A process that opens a full log leaves a calibration line at
/// its end and then goes on at its start, so its rounds follow that line. They are known by their threads,
/// unless the first process had the same.
class RoundSorter {
  public:
    RoundSorter(const InputFile& file, const std::vector<Quote>& quotes, const Rounds& rounds);

    std::vector<LogPart> Take() { return std::move(sorted_); }

  private:
    void Add(std::vector<LogPart> round);
    std::vector<LogPart> TakeLater();
    bool MayBeCut(const LogPart& opening) const;
    bool IsOf(const std::vector<LogPart>& round, std::size_t opening) const;
    void Move(std::size_t openings);
    void Append(const std::vector<LogPart>& round, bool overwritten);

    std::vector<LogPart> openings_;
    std::size_t moved_ = 0; ///< openings that stand in their place
    std::vector<LogPart> newest_;
    std::vector<LogPart> first_; ///< the oldest round
    bool sharesThreads_ = false; ///< with a process that opened the log later
    std::vector<LogPart> sorted_;
};

} // namespace NimaPost
