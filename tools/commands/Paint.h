#pragma once

#include <string_view>

namespace NimaPost {

/// The colours of a terminal; empty texts where there are to be none.
class Paint {
  public:
    void TurnOn() { on_ = true; }

    std::string_view Dim() const { return on_ ? "\x1b[2m" : ""; }
    std::string_view Plain() const { return on_ ? "\x1b[0m" : ""; }
    /// Of what is said at a level of text logs, or of a crash.
    std::string_view OfLevel(std::string_view level) const {
        return !on_                                   ? ""
               : level == "FATAL" || level == "CRASH" ? "\x1b[1;31m"
               : level == "ERROR"                     ? "\x1b[31m"
               : level == "WARN"                      ? "\x1b[33m"
               : level == "PERF"                      ? "\x1b[36m"
               : level == "DEBUG" || level == "CAL"   ? "\x1b[2m"
                                                      : "";
    }

  private:
    bool on_ = false;
};

} // namespace NimaPost
