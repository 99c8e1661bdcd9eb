#pragma once

#include "tools/formats/TextLog.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// Which lines of a log to show. Lines without a header share the fate of the one before.
class LogFilter {
  public:
    /// "WARN" or "warn" for one level, "WARN+" for it and graver ones. False for what is no level.
    bool AddLevel(std::string_view text);
    void AddTracer(const std::string& name) { tracers_.push_back(name); }
    bool AddThread(std::string_view text);
    /// The line has to hold this.
    void SetText(const std::string& text, bool ignoreCase);

    /// Whether anything is left out at all.
    bool Empty() const { return levels_.empty() && tracers_.empty() && threads_.empty() && text_.empty(); }

    bool Admits(const LogLine& line, std::string_view text);

  private:
    bool AdmitsHeader(const LogLine& line) const;
    bool HoldsText(std::string_view text) const;

    std::vector<std::string> levels_;
    std::vector<std::string> tracers_;
    std::vector<std::uint32_t> threads_;
    std::string text_;
    bool ignoreCase_ = false;
    bool previous_ = true;
};

} // namespace NimaPost
