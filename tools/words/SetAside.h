#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string>

#include <Diagnostics/Formats.h>

namespace NimaPost {

/// What it means that a block's saved filter lets through more than its live one, in a sentence.
extern const char* const kSetAside;

/// How many of the entries, oldest first, follow the begin of a dump; empty if there is none, or it has
/// ended.
std::optional<std::size_t> EntriesSinceDumpBegan(std::span<const SysTraceEntry> entries);

/// What these say about a filter that is set aside, in a sentence that begins with a space: nothing is traced
/// while a filter lets nothing through, but for what writers had begun. Empty if they say nothing.
std::string SetAsideHint(std::optional<std::size_t> sinceDumpBegan, bool nothingPasses);

} // namespace NimaPost
