#pragma once

#include "tools/axis/TimelineEvent.h"
#include "tools/base/Output.h"
#include "tools/systrace/SysTrace.h"

#include <string>

namespace NimaPost {

/// "0x979fe6c0  Engine  level 0  page_begins: page 1, 79 lines": thread, component, level, and the event in
/// words.
void AppendRecord(std::string& text, const SysTraceFile& trace, const SysTraceRecord& record,
                  const Names& names);

/// Turns records into events, as yet without a place among others: their times count from the first one.
class TraceEvents {
  public:
    explicit TraceEvents(const Names& names) : names_(names) {}

    /// Holds until the next call.
    TimelineEvent Of(const SysTraceFile& trace, const SysTraceRecord& record);

  private:
    const Names& names_;
    std::string level_;
    std::string component_;
    std::string text_;
};

Json RecordJson(const SysTraceFile& trace, const SysTraceRecord& record, const Names& names);

} // namespace NimaPost
