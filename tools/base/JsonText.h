#pragma once

#include <string>
#include <string_view>

namespace NimaPost {

/// Appends bytes as they stand between the quotes of a JSON string. Those that are not UTF-8 become U+FFFD.
void AppendJsonText(std::string& out, std::string_view bytes);

} // namespace NimaPost
