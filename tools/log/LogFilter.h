#pragma once

#include "tools/log/LogLine.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
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
    /// Some line of the message has to hold this.
    void SetText(const std::string& text, bool ignoreCase);

    /// Whether anything is left out at all.
    bool Empty() const { return levels_.empty() && tracers_.empty() && threads_.empty() && text_.empty(); }

    /// What becomes of a line.
    enum class Fate : unsigned char {
        kShow, ///< with the lines of its message that were undecided so far
        kHide,
        kUndecided ///< shown once a further line of its message holds the text
    };
    Fate Judge(const LogLine& line, std::string_view text);

  private:
    bool AdmitsHeader(const LogLine& line) const;
    bool HoldsText(std::string_view text) const;

    struct AnyCaseHash {
        std::size_t operator()(char c) const;
    };
    struct AnyCaseEqual {
        bool operator()(char a, char b) const;
    };
    using AnyCaseSearcher =
        std::boyer_moore_horspool_searcher<std::string::const_iterator, AnyCaseHash, AnyCaseEqual>;

    std::vector<std::string> levels_;
    std::vector<std::string> tracers_;
    std::vector<std::uint32_t> threads_;
    std::string text_;
    std::optional<AnyCaseSearcher> anyCase_;
    Fate message_ = Fate::kShow;
};

} // namespace NimaPost
