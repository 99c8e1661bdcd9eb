#pragma once

#include <string>
#include <string_view>

namespace NimaPost {

/// As a field stands in a line of comma-separated values, in quotes only if it needs them.
inline void AppendCsvField(std::string& out, std::string_view text) {
    if (text.find_first_of("\",\r\n") == std::string_view::npos) {
        out += text;
        return;
    }
    out += '"';
    for (const char c : text) {
        out.append(c == '"' ? 2 : 1, c);
    }
    out += '"';
}

} // namespace NimaPost
