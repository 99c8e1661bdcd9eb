#pragma once

#include "tools/log/LogFile.h"

#include <cstddef>
#include <optional>
#include <vector>

namespace NimaPost {

/// Of each file, which other one begins with all that is in it: it is a copy of that one, or of what that one
/// was earlier. Empty for the others. The files are given in the order in which they are preferred.
std::vector<std::optional<std::size_t>> FindCopies(const std::vector<const LogFile*>& files);

} // namespace NimaPost
