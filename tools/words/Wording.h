#pragma once

#include "tools/base/Output.h"
#include "tools/names/Names.h"
#include "tools/rings/Rings.h"
#include "tools/systrace/SysTraceFile.h"

#include <string>
#include <string_view>

namespace NimaPost {

/// "tracing", "capturing" and so on for the capture state of a SysTrace block.
const char* CaptureStateName(std::uint32_t state);

/// "0x979fe6c0  Engine  level 0  page_begins: page 1, 79 lines": thread, component, level, event and
/// arguments as far as the dictionary knows them, as numbers otherwise.
void AppendRecord(std::string& text, const SysTraceFile& trace, const SysTraceRecord& record,
                  const Names& names);

Json RecordJson(const SysTraceFile& trace, const SysTraceRecord& record, const Names& names);

/// "page_begins: page 1", or the five words as numbers.
void AppendRingWords(std::string& text, std::string_view ring, const RingBufferData& record,
                     const Names& names);

} // namespace NimaPost
