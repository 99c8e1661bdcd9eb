#pragma once

#include "tools/base/Output.h"
#include "tools/names/Names.h"
#include "tools/story/Selection.h"
#include "tools/story/Story.h"

#include <cstdint>

namespace NimaPost {

/// Writes a story as Perfetto's own trace. Returns the number of events.
std::uint64_t WritePerfettoTrace(const Story& story, const Names& names, Selection& selection, Output& out);

} // namespace NimaPost
