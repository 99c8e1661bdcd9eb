#pragma once

#include "tools/base/TimePrinter.h"
#include "tools/commands/Commands.h"
#include "tools/log/LogEntry.h"

#include <string_view>

namespace NimaPost {

/// Prints lines as they stand in their log, after their times and marks.
class LinePrinter {
  public:
    explicit LinePrinter(Context& context) : context_(context) {}

    void Print(const LogEntry& entry);

  private:
    Context& context_;
    TimePrinter times_;
    std::string_view colour_;
};

} // namespace NimaPost
