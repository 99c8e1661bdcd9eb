#pragma once

#include <string>

namespace NimaCtl {

/// The build id of an ELF file, of either word size, in hexadecimal; empty if it has none or is no such file.
std::string BuildIdOf(const std::string& path);

} // namespace NimaCtl
