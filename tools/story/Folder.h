#pragma once

#include "tools/axis/Source.h"
#include "tools/input/Evidence.h"

namespace NimaPost {

/// Finds out what a file is, and has the source for its kind read it. What cannot be opened or read is said
/// in the file's findings.
void ReadFolderFile(EvidenceFile& evidence, FolderFile& file, SourceSet& sources);

/// Whether any file is of a kind that the sources read.
bool HoldsEvidence(Device& device);

} // namespace NimaPost
