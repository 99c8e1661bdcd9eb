#include "tools/names/EventFormat.h"

#include "tools/base/Text.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace NimaPost {

namespace {

/// A conversion of a format: "%", flags, width, precision and a letter. 32-bit words need no length letters,
/// so the text has none.
struct Conversion {
    std::string flags;
    char letter = 0;
    std::size_t length = 0;
};

bool ReadConversion(std::string_view format, Conversion& conversion) {
    std::size_t i = format.find_first_not_of("-+ #0", 1);
    const auto digits = [&] {
        for (int count = 0; i < format.size() && format[i] >= '0' && format[i] <= '9'; ++i) {
            if (++count > 3) {
                return false;
            }
        }
        return i < format.size();
    };
    if (i >= format.size() || i > 8 || !digits()) {
        return false;
    }
    if (format[i] == '.' && (++i, !digits())) {
        return false;
    }
    conversion.letter = format[i];
    conversion.flags = format.substr(1, i - 1);
    conversion.length = i + 1;
    return std::string_view("diuxXocpT").find(conversion.letter) != std::string_view::npos;
}

void AppendConverted(std::string& out, const Conversion& conversion, std::uint32_t value) {
    if (conversion.letter == 'c') {
        const char byte = static_cast<char>(value);
        return AppendPrintable(out, {&byte, 1});
    }
    if (conversion.letter == 'p') {
        return AppendHex32(out, value);
    }
    // Widths have at most three digits.
    std::array<char, 2100> text{};
    std::string format = "%" + conversion.flags + conversion.letter;
    const bool isSigned = conversion.letter == 'd' || conversion.letter == 'i';
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
    if (isSigned) {
        std::snprintf(text.data(), text.size(), format.c_str(), static_cast<std::int32_t>(value));
    } else {
        std::snprintf(text.data(), text.size(), format.c_str(), value);
    }
#pragma GCC diagnostic pop
    out += text.data();
}

/// The bytes of a word, in the order of memory, up to a zero.
void AppendBytes(std::string& bytes, std::uint32_t word) {
    for (; (word & 0xFF) != 0; word >>= 8) {
        bytes += static_cast<char>(word & 0xFF);
    }
}

} // namespace

std::optional<std::size_t> CountArguments(std::string_view format) {
    std::size_t count = 0;
    for (std::size_t at = format.find('%'); at != std::string_view::npos; at = format.find('%', at)) {
        const std::string_view rest = format.substr(at);
        Conversion conversion;
        if (rest.starts_with("%%")) {
            at += 2;
        } else if (ReadConversion(rest, conversion)) {
            at += conversion.length;
            ++count;
        } else {
            return std::nullopt;
        }
    }
    return count;
}

void AppendFormatted(std::string& out, std::string_view format, std::span<const std::uint32_t> arguments) {
    std::size_t used = 0;
    std::string_view rest = format;
    std::string bytes; // of a text whose words follow one another; a character may be in two of them
    while (!rest.empty()) {
        if (!bytes.empty() && !rest.starts_with("%T")) {
            AppendPrintable(out, bytes);
            bytes.clear();
        }
        const std::size_t plain = std::min(rest.find('%'), rest.size());
        AppendPrintable(out, rest.substr(0, plain));
        rest.remove_prefix(plain);
        Conversion conversion;
        if (rest.starts_with("%%")) {
            out += '%';
            rest.remove_prefix(2);
        } else if (!rest.empty() && ReadConversion(rest, conversion)) {
            if (used < arguments.size() && conversion.letter == 'T') {
                AppendBytes(bytes, arguments[used]);
            } else if (used < arguments.size()) {
                AppendConverted(out, conversion, arguments[used]);
            } else {
                out += '?';
            }
            ++used;
            rest.remove_prefix(conversion.length);
        }
    }
    AppendPrintable(out, bytes);
    for (; used < arguments.size(); ++used) {
        out += ' ';
        AppendHex(out, arguments[used]);
    }
}

} // namespace NimaPost
