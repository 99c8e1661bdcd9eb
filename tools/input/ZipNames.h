#pragma once

#include "tools/base/InputFile.h"

#include <map>
#include <string>

namespace NimaPost {

/// The names in a zip archive's directory that hold backslashes and no slash, of members from systems where a
/// backslash is a character like any other: by what the library that unpacks makes of them. A device's files
/// have such names, "triage\SysTrace.bin".
std::map<std::string, std::string> BackslashNames(const InputFile& file);

} // namespace NimaPost
