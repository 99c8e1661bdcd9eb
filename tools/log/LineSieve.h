#pragma once

#include "tools/base/ByteSearch.h"
#include "tools/base/Pattern.h"
#include "tools/log/LogFilter.h"

#include <algorithm>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// What a message must hold for a filter to show it, looked for before lines are taken apart. It may let
/// pass what the filter does not show.
class LineSieve {
  public:
    /// The filter outlives it.
    explicit LineSieve(const LogFilter& filter);

    /// A bit for each thing that is needed.
    using Needs = std::uint32_t;
    Needs All() const { return all_; }
    /// Which of them may be in some lines.
    Needs In(std::string_view lines) const;

    /// Whether the level tells of any messages that they are not wanted.
    bool KnowsLevels() const { return !levels_.empty(); }
    /// Whether it does not of this one, by what follows its header, as `ParseLogHeader` leaves it.
    bool MayAdmit(std::string_view body) const {
        return std::any_of(levels_.begin(), levels_.end(),
                           [&](const std::string& level) { return body.starts_with(level); });
    }
    bool Admits(const LogLine& line) const {
        return filter_.AdmitsHeader(line.level, line.tracer, line.thread);
    }

  private:
    using OneOf = std::vector<ByteSearch>;

    const LogFilter& filter_;
    std::vector<const Pattern*> patterns_;
    std::vector<std::string> levels_; ///< as they stand in a line; empty for any
    std::vector<OneOf> marks_;        ///< of a message's first line
    Needs all_ = 0;
};

} // namespace NimaPost
