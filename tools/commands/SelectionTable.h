#pragma once

#include "tools/commands/Commands.h"
#include "tools/story/Selection.h"

namespace NimaPost {

/// Whether a command takes --last besides the options of time, boot, process and text.
enum class TakesLast : bool { kNo, kYes };

/// The options by which every command that lists is told which part to take.
void AddSelection(CLI::App& command, SelectionOptions& options, TakesLast last);

} // namespace NimaPost
