#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <string>

namespace NimaPost {

/// Formats the times of lines; those of one second share everything but the fraction.
class TimePrinter {
  public:
    /// A date, or seconds where nothing is dated; blanks for none.
    void Append(std::string& text, std::optional<std::int64_t> time, bool hasWall);

  private:
    std::int64_t second_ = std::numeric_limits<std::int64_t>::min();
    std::string cached_;
};

} // namespace NimaPost
