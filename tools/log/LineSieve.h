#pragma once

#include "tools/base/ByteSearch.h"
#include "tools/base/Pattern.h"
#include "tools/log/LogFilter.h"

#include <cstdint>
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

    bool Admits(const LogLine& header) const {
        return filter_.AdmitsHeader(header.level, header.tracer, header.thread);
    }

  private:
    using OneOf = std::vector<ByteSearch>;

    const LogFilter& filter_;
    std::vector<const Pattern*> patterns_;
    std::vector<OneOf> marks_; ///< of the header
    Needs all_ = 0;
};

} // namespace NimaPost
