#pragma once

#include "tools/axis/Source.h"
#include "tools/input/Evidence.h"
#include "tools/manifest/Manifest.h"

#include <optional>

namespace NimaPost {

/// Finds out what a file is, and has the source for its kind read it. What cannot be opened or read is said
/// in the file's findings.
void ReadFolderFile(EvidenceFile& evidence, FolderFile& file, SourceSet& sources);

/// The manifest among the files, if there is one.
std::optional<Manifest> ManifestOf(Device& device, Findings& findings);

/// Whether any file is of a kind that the sources read.
bool HoldsEvidence(Device& device);

} // namespace NimaPost
