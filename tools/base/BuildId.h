#pragma once

#include "tools/base/InputFile.h"

#include <string>
#include <string_view>

namespace NimaPost {

/// The build id of an ELF file, of either word size, in hexadecimal; empty if it has none or is no such file.
std::string BuildIdOf(const InputFile& file);
std::string BuildIdOf(const std::string& path);

/// By the first bytes.
bool LooksLikeElf(std::string_view front);

} // namespace NimaPost
