#include "tools/base/JsonText.h"

#include "tools/base/Text.h"

#include <algorithm>

namespace NimaPost {

namespace {

bool StandsForItself(char c) {
    return static_cast<unsigned char>(c) >= 0x20 && c != '"' && c != '\\';
}

void AppendEscaped(std::string& out, char c) {
    constexpr std::string_view kShort = "\b\f\n\r\t\"\\";
    constexpr std::string_view kLetters = "bfnrt\"\\";
    constexpr std::string_view kDigits = "0123456789abcdef";
    const std::size_t known = kShort.find(c);
    if (known != std::string_view::npos) {
        out += {'\\', kLetters[known]};
    } else {
        const auto code = static_cast<unsigned char>(c);
        out += "\\u00";
        out += {kDigits[code >> 4], kDigits[code & 15]};
    }
}

} // namespace

void AppendJsonText(std::string& out, std::string_view bytes) {
    const bool plain = std::all_of(bytes.begin(), bytes.end(), [](char c) { return (c & 0x80) == 0; });
    const std::string valid = plain ? std::string() : ToUtf8(bytes);
    std::string_view rest = plain ? bytes : valid;
    while (!rest.empty()) {
        const auto same = static_cast<std::size_t>(
            std::find_if_not(rest.begin(), rest.end(), StandsForItself) - rest.begin());
        out += rest.substr(0, same);
        rest.remove_prefix(same);
        if (!rest.empty()) {
            AppendEscaped(out, rest.front());
            rest.remove_prefix(1);
        }
    }
}

} // namespace NimaPost
