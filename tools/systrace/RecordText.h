#pragma once

#include "tools/base/Output.h"
#include "tools/systrace/SysTrace.h"

#include <string>

namespace NimaPost {

/// "0x979fe6c0  Engine  level 0  page_begins: page 1, 79 lines": thread, component, level, and the event in
/// words.
void AppendRecord(std::string& text, const SysTraceFile& trace, const SysTraceRecord& record,
                  const Names& names);

Json RecordJson(const SysTraceFile& trace, const SysTraceRecord& record, const Names& names);

} // namespace NimaPost
