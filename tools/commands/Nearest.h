#pragma once

#include <string>
#include <vector>

namespace NimaPost {

/// The name that somebody who mistyped `word` probably meant; empty if none is near.
std::string Nearest(const std::string& word, const std::vector<std::string>& names);

} // namespace NimaPost
