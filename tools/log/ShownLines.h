#pragma once

#include "tools/base/HeldLines.h"
#include "tools/log/LogEntry.h"
#include "tools/log/LogFilter.h"

#include <string>
#include <utility>

namespace NimaPost {

/// An entry with a text of its own.
class KeptEntry {
  public:
    void Assign(const LogEntry& entry);
    /// Holds as long as the object stays where it is.
    const LogEntry& Get() const { return entry_; }

  private:
    LogEntry entry_;
    std::string text_;
};

/// Hands on the lines that a filter shows, a message's first lines also when only a later one decides.
class ShownLines {
  public:
    using Show = HeldLines<LogEntry, KeptEntry>::Show;
    ShownLines(LogFilter& filter, Show show) : filter_(filter), messages_(std::move(show)) {}

    void Take(const LogEntry& entry);
    /// To be called when no line follows, or none has for a while.
    void Finish() { messages_.Finish(); }

  private:
    LogFilter& filter_;
    HeldLines<LogEntry, KeptEntry> messages_;
};

} // namespace NimaPost
