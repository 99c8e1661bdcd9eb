#pragma once

#include "tools/systrace/Drafts.h"

#include <cstdint>
#include <vector>

namespace NimaPost {

/// Decides which records are whole, and what became of continuations that belong to none. Returns the torn
/// records that lack values.
std::vector<std::uint32_t> JudgeRecords(SysTraceFile& trace, const Drafts& drafts);

} // namespace NimaPost
