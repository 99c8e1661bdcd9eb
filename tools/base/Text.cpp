#include "tools/base/Text.h"

#include "tools/base/CounterClock.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <iterator>
#include <utility>

namespace NimaPost {

namespace {

bool IsPlain(unsigned char c) {
    return c >= 0x20 && c < 0x7F;
}

/// The character at the front of a text; its length is 0 if the bytes there are not UTF-8.
struct Character {
    std::size_t length = 0;
    std::uint32_t code = 0;
};

Character FirstCharacter(std::string_view text) {
    const auto at = [&](std::size_t i) { return static_cast<unsigned char>(text[i]); };
    const unsigned char first = at(0);
    Character character;
    std::uint32_t least = 0;
    if (first < 0x80) {
        return {1, first};
    }
    if ((first & 0xE0) == 0xC0) {
        character = {2, first & 0x1FU}, least = 0x80;
    } else if ((first & 0xF0) == 0xE0) {
        character = {3, first & 0x0FU}, least = 0x800;
    } else if ((first & 0xF8) == 0xF0) {
        character = {4, first & 0x07U}, least = 0x10000;
    } else {
        return {};
    }
    if (text.size() < character.length) {
        return {};
    }
    for (std::size_t i = 1; i < character.length; ++i) {
        if ((at(i) & 0xC0) != 0x80) {
            return {};
        }
        character.code = character.code << 6 | (at(i) & 0x3FU);
    }
    const bool surrogate = character.code >= 0xD800 && character.code < 0xE000;
    return character.code < least || character.code > 0x10FFFF || surrogate ? Character() : character;
}

/// Characters that take no room or turn the direction of text around; the report's page escapes the same
/// ones.
bool IsUnseen(std::uint32_t code) {
    constexpr std::pair<std::uint32_t, std::uint32_t> kUnseen[]{
        {0xAD, 0xAD},     {0x34F, 0x34F},   {0x61C, 0x61C},   {0x180E, 0x180E}, {0x200B, 0x200F},
        {0x2028, 0x202E}, {0x2060, 0x206F}, {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}};
    return std::any_of(std::begin(kUnseen), std::end(kUnseen),
                       [&](const auto& range) { return code >= range.first && code <= range.second; });
}

bool IsControl(std::uint32_t code) {
    return code < 0x20 || (code >= 0x7F && code < 0xA0);
}

constexpr std::string_view kDigits = "0123456789abcdef";

void AppendEscaped(std::string& out, std::string_view bytes) {
    for (const char c : bytes) {
        const auto byte = static_cast<unsigned char>(c);
        out += {'\\', 'x', kDigits[byte >> 4], kDigits[byte & 15]};
    }
}

/// \xad or \u200b
void AppendCode(std::string& out, std::uint32_t code) {
    out += code < 0x100 ? "\\x" : "\\u";
    for (int shift = code < 0x100 ? 4 : 12; shift >= 0; shift -= 4) {
        out += kDigits[code >> shift & 15];
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
        const Character character = FirstCharacter(text);
        const std::string_view bytes = text.substr(0, std::max<std::size_t>(character.length, 1));
        if (character.length == 0 || IsControl(character.code)) {
            AppendEscaped(out, bytes);
        } else if (IsUnseen(character.code)) {
            AppendCode(out, character.code);
        } else {
            out.append(bytes);
        }
        text.remove_prefix(bytes.size());
    }
}

std::string Printable(std::string_view text) {
    std::string out;
    AppendPrintable(out, text);
    return out;
}

std::string ToUtf8(std::string_view bytes) {
    std::string out;
    out.reserve(bytes.size());
    while (!bytes.empty()) {
        const std::size_t length = FirstCharacter(bytes).length;
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
    constexpr auto kWholeSecond = static_cast<std::uint64_t>(kSecond);
    const bool negative = nanoseconds < 0;
    const std::uint64_t size =
        negative ? 0 - static_cast<std::uint64_t>(nanoseconds) : static_cast<std::uint64_t>(nanoseconds);
    out += negative ? '-' : '+';
    AppendNumber(out, size / kWholeSecond, 10);
    std::array<char, 10> fraction{'.'};
    std::uint64_t rest = size % kWholeSecond;
    for (std::size_t i = fraction.size(); i-- > 1; rest /= 10) {
        fraction[i] = kDigits[rest % 10];
    }
    out.append(fraction.data(), fraction.size());
}

std::string Duration(std::int64_t nanoseconds) {
    std::string text;
    AppendSeconds(text, nanoseconds);
    return text.substr(1) + " s";
}

std::string Counted(std::uint64_t count, std::string_view noun) {
    std::string text = std::to_string(count);
    text += ' ';
    if (count != 1 && noun.ends_with('y')) {
        text += noun.substr(0, noun.size() - 1);
        return text += "ies";
    }
    text += noun;
    return count == 1 ? text : text += noun.ends_with('s') || noun.ends_with("sh") ? "es" : "s";
}

bool TakeDecimal(std::string_view& text, std::int64_t& value) {
    // So many digits fit whatever they are.
    constexpr std::size_t kSureDigits = 18;
    std::int64_t number = 0;
    std::size_t digits = 0;
    for (; digits < std::min(text.size(), kSureDigits) && IsDigit(text[digits]); ++digits) {
        number = number * 10 + (text[digits] - '0');
    }
    if (digits == 0 || digits == kSureDigits) {
        return Take(text, value, 10);
    }
    value = number;
    text.remove_prefix(digits);
    return true;
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

std::string_view TakeLine(std::string_view& text) {
    const std::size_t end = std::min(text.find('\n'), text.size() - 1) + 1;
    const std::string_view line = WithoutLineEnd(text.substr(0, end));
    text.remove_prefix(end);
    return line;
}

} // namespace NimaPost
