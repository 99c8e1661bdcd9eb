#pragma once

#include <string>
#include <string_view>

namespace NimaPost {

/// As a page holds bytes: deflated, with their length in four bytes, the lowest first, in front; in base64.
std::string Packed(std::string_view bytes);

} // namespace NimaPost
