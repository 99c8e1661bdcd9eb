#pragma once

#include "tools/axis/Source.h"
#include "tools/input/Evidence.h"
#include "tools/symbols/Known.h"

namespace NimaPost {

/// Finds out what a file is, and has the source for its kind read it. What cannot be opened or read is said
/// in the file's findings, and what it tells of builds is added to `known`.
void ReadFolderFile(EvidenceFile& evidence, FolderFile& file, SourceSet& sources, KnownModules& known);

/// Whether any file is of a kind that the sources read.
bool HoldsEvidence(Device& device);

} // namespace NimaPost
