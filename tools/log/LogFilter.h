#pragma once

#include "tools/base/TextFilter.h"
#include "tools/log/LogEntry.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// Which messages of a log to show: a line with a header, and the lines without one that follow it.
class LogFilter {
  public:
    LogFilter() = default;
    LogFilter(const LogFilter&) = delete;
    LogFilter& operator=(const LogFilter&) = delete;

    /// "WARN" or "warn" for one level, "WARN+" for it and graver ones. False for what is no level.
    bool AddLevel(std::string_view text);
    void AddTracer(const std::string& name) { tracers_.push_back(name); }
    bool AddThread(std::string_view text);
    /// The message has to be one of these as well, which outlive the filter.
    void SetTexts(TextFilter& texts) { texts_ = &texts; }

    /// To be called before what was judged is judged once more from its begin.
    void Restart();
    /// What becomes of a line, and of those of its message that were undecided so far.
    using Fate = TextFilter::Fate;
    Fate Judge(const LogEntry& entry);

    const std::vector<std::string>& Levels() const { return levels_; }
    const std::vector<std::string>& Tracers() const { return tracers_; }
    const TextFilter* Texts() const { return texts_; }

    /// Whether a message may be shown that begins with a line of these.
    bool AdmitsHeader(std::string_view level, std::string_view tracer, std::uint32_t thread) const;

  private:
    std::vector<std::string> levels_;
    std::vector<std::string> tracers_;
    std::vector<std::uint32_t> threads_;
    TextFilter* texts_ = nullptr;
    Fate message_ = Fate::kShow;
};

} // namespace NimaPost
