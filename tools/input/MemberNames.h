#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// How the names of compressed files end; first that of one that is not.
inline constexpr std::array<std::string_view, 5> kCompressedSuffixes{"", ".gz", ".bz2", ".xz", ".zst"};

/// The name that a file had before it was compressed.
std::string NameUnpacked(const std::string& name);

/// The folders and, last, the file that a member's name consists of. What leads upwards or to the root is
/// left out, and `odd` is then set. Empty where nothing is left.
std::vector<std::string> PartsOfName(std::string_view name, bool& odd);

} // namespace NimaPost
