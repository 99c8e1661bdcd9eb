#pragma once

#include "tools/log/LogFilter.h"
#include "tools/log/LogSet.h"

#include <cstddef>
#include <deque>
#include <functional>
#include <string>
#include <utility>

namespace NimaPost {

/// Hands on the lines that a filter shows, a message's first lines also when only a later one decides.
class ShownLines {
  public:
    using Show = std::function<void(const LogEntry&)>;
    ShownLines(LogFilter& filter, Show show) : filter_(filter), show_(std::move(show)) {}

    void Take(const LogEntry& entry);
    /// To be called when no line follows, or none has for a while.
    void Finish();

  private:
    /// Beyond so many lines a message's later ones are shown without those in front.
    static constexpr std::size_t kMostWaiting = 256;

    /// An entry with a text of its own.
    struct Kept {
        LogEntry entry;
        std::string text;
    };

    void Keep(const LogEntry& entry);
    void ShowKept();

    LogFilter& filter_;
    Show show_;
    std::deque<Kept> kept_; ///< not moved when it grows: entries look at their texts
    std::size_t waiting_ = 0;
    LogFilter::Fate fate_ = LogFilter::Fate::kShow; ///< of those that wait
};

} // namespace NimaPost
