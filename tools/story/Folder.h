#pragma once

#include "tools/axis/Source.h"

#include <string>
#include <vector>

namespace NimaPost {

/// The regular files of a folder, sorted by name, without those of its folders. False, with the reason, where
/// the folder cannot be read.
bool ListFolder(const std::string& folder, std::vector<std::string>& names, std::string& problem);

/// Opens the file, once and for all, finds out what it is, and has the source for its kind read it. What
/// cannot be opened or read is said in the file's findings.
void ReadFolderFile(const std::string& folder, FolderFile& file, SourceSet& sources);

} // namespace NimaPost
