#include "tools/base/Text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>

namespace NimaPost {

namespace {

bool IsPlain(unsigned char c) {
    return c >= 0x20 && c < 0x7F;
}

/// Length of the valid UTF-8 sequence at the front of a text, 0 if there is none.
std::size_t SequenceLength(std::string_view text) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = at(0);
    std::size_t length = 0;
    std::uint32_t least = 0;
    std::uint32_t code = 0;
    if (first < 0x80) {
        return 1;
    }
    if ((first & 0xE0) == 0xC0) {
        length = 2, least = 0x80, code = first & 0x1FU;
    } else if ((first & 0xF0) == 0xE0) {
        length = 3, least = 0x800, code = first & 0x0FU;
    } else if ((first & 0xF8) == 0xF0) {
        length = 4, least = 0x10000, code = first & 0x07U;
    } else {
        return 0;
    }
    if (text.size() < length) {
        return 0;
    }
    for (std::size_t i = 1; i < length; ++i) {
        if ((at(i) & 0xC0) != 0x80) {
            return 0;
        }
        code = code << 6 | (at(i) & 0x3FU);
    }
    const bool surrogate = code >= 0xD800 && code < 0xE000;
    return code < least || code > 0x10FFFF || surrogate ? 0 : length;
}

/// C1 controls and direction overrides move a terminal as much as ESC does.
bool MovesATerminal(std::string_view sequence) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(sequence[i]); };
    return (sequence.size() == 2 && at(0) == 0xC2 && at(1) < 0xA0) ||
           (sequence.size() == 3 && at(0) == 0xE2 &&
            ((at(1) == 0x80 && at(2) >= 0xA8 && at(2) <= 0xAE) ||
             (at(1) == 0x81 && at(2) >= 0xA6 && at(2) <= 0xA9)));
}

constexpr std::string_view kDigits = "0123456789abcdef";

void AppendEscaped(std::string& out, std::string_view bytes) {
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        out += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    }
}

template <typename Number>
void AppendNumber(std::string& out, Number value, int base) {
    std::array<char, 24> digits{};
    const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value, base);
    out.append(digits.data(), result.ptr);
}

char Lower(char c) {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

template <typename Number>
bool Take(std::string_view& text, Number& value, int base) {
    Number parsed{};
    const auto result = std::from_chars(text.data(), text.data() + text.size(), parsed, base);
    if (result.ec != std::errc()) {
        return false;
    }
    value = parsed;
    text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
    return true;
}

} // namespace

void AppendPrintable(std::string& out, std::string_view text) {
    while (!text.empty()) {
        const auto plain = static_cast<std::size_t>(
            std::find_if_not(text.begin(), text.end(),
                             [](char c) { return IsPlain(static_cast<unsigned char>(c)); }) -
            text.begin());
        out.append(text.substr(0, plain));
        text.remove_prefix(plain);
        if (text.empty()) {
            return;
        }
        const std::size_t length = SequenceLength(text);
        if (length > 1 && !MovesATerminal(text.substr(0, length))) {
            out.append(text.substr(0, length));
            text.remove_prefix(length);
        } else {
            const std::size_t escaped = std::max<std::size_t>(length, 1);
            AppendEscaped(out, text.substr(0, escaped));
            text.remove_prefix(escaped);
        }
    }
}

std::string ToUtf8(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    while (!bytes.empty()) {
        const std::size_t length = SequenceLength(bytes);
        if (length > 0) {
            out.append(bytes.substr(0, length));
        } else {
            out.append("\xEF\xBF\xBD");
        }
        bytes.remove_prefix(std::max<std::size_t>(length, 1));
    }
    return out;
}

void AppendDecimal(std::string& out, std::int64_t value) {
    AppendNumber(out, value, 10);
}

void AppendHex32(std::string& out, std::uint32_t value) {
    std::array<char, 10> text{'0', 'x'};
    for (std::size_t i = text.size(); i-- > 2; value >>= 4) {
        text[i] = kDigits[value & 15];
    }
    out.append(text.data(), text.size());
}

void AppendHex(std::string& out, std::uint64_t value) {
    out += "0x";
    AppendNumber(out, value, 16);
}

std::string Hex(std::uint64_t value) {
    std::string text;
    AppendHex(text, value);
    return text;
}

std::string Hex32(std::uint32_t value) {
    std::string text;
    AppendHex32(text, value);
    return text;
}

void AppendSeconds(std::string& out, std::int64_t nanoseconds) {
    constexpr std::uint64_t kSecond = 1'000'000'000;
    const bool negative = nanoseconds < 0;
    const std::uint64_t size =
        negative ? 0 - static_cast<std::uint64_t>(nanoseconds) : static_cast<std::uint64_t>(nanoseconds);
    out += negative ? '-' : '+';
    AppendNumber(out, size / kSecond, 10);
    std::array<char, 10> fraction{'.'};
    std::uint64_t rest = size % kSecond;
    for (std::size_t i = fraction.size(); i-- > 1; rest /= 10) {
        fraction[i] = kDigits[rest % 10];
    }
    out.append(fraction.data(), fraction.size());
}

std::string Counted(std::uint64_t count, std::string_view noun) {
    std::string text = std::to_string(count);
    text += ' ';
    if (count != 1 && noun.ends_with('y')) {
        text += noun.substr(0, noun.size() - 1);
        return text += "ies";
    }
    text += noun;
    return count == 1 ? text : text += 's';
}

bool TakeDecimal(std::string_view& text, std::int64_t& value) {
    return Take(text, value, 10);
}

bool TakeHex(std::string_view& text, std::uint64_t& value) {
    return Take(text, value, 16);
}

bool TakeLiteral(std::string_view& text, std::string_view literal) {
    if (!text.starts_with(literal)) {
        return false;
    }
    text.remove_prefix(literal.size());
    return true;
}

bool ParseNumber(std::string_view text, std::uint64_t& value) {
    const bool hexadecimal = text.starts_with("0x") || text.starts_with("0X");
    if (hexadecimal) {
        text.remove_prefix(2);
    }
    return Take(text, value, hexadecimal ? 16 : 10) && text.empty();
}

bool EqualNoCase(std::string_view a, std::string_view b) {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return Lower(x) == Lower(y); });
}

std::string_view WithoutLineEnd(std::string_view line) {
    if (line.ends_with('\n')) {
        line.remove_suffix(1);
        if (line.ends_with('\r')) {
            line.remove_suffix(1);
        }
    }
    return line;
}

} // namespace NimaPost
