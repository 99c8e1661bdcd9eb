#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace NimaPost {

constexpr bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// Appends text from a device in a form that a terminal only displays: control characters and bytes that are
/// not UTF-8 become \xNN; characters that are invisible or turn the direction of text around become \uNNNN.
void AppendPrintable(std::string& out, std::string_view text);
std::string Printable(std::string_view text);

/// The same text as valid UTF-8: invalid bytes become U+FFFD. NULs stay.
std::string ToUtf8(std::string_view bytes);

void AppendDecimal(std::string& out, std::int64_t value);
/// Eight digits with leading zeros and "0x".
void AppendHex32(std::string& out, std::uint32_t value);
/// As few digits as possible, with "0x".
void AppendHex(std::string& out, std::uint64_t value);
std::string Hex(std::uint64_t value);
std::string Hex32(std::uint32_t value);

/// Nanoseconds as signed seconds with nine places: "+12.345678901".
void AppendSeconds(std::string& out, std::int64_t nanoseconds);
/// The same of a length of time: "12.345678901 s".
std::string Duration(std::int64_t nanoseconds);

/// "1 record", "2 records".
std::string Counted(std::uint64_t count, std::string_view noun);

/// Takes the next decimal number of a text and advances past it. Returns false, with nothing changed, if
/// there is none or it does not fit.
bool TakeDecimal(std::string_view& text, std::int64_t& value);
/// The same for hexadecimal digits without "0x".
bool TakeHex(std::string_view& text, std::uint64_t& value);
bool TakeLiteral(std::string_view& text, std::string_view literal);
/// "17", "0x11": the whole text must be one number.
bool ParseNumber(std::string_view text, std::uint64_t& value);

/// Case-insensitive for ASCII, as an engineer types a level or a name.
bool EqualNoCase(std::string_view a, std::string_view b);

/// Without the CR LF or LF at its end.
std::string_view WithoutLineEnd(std::string_view line);
/// The next line of a text that is not empty, without its line end; advances to the line after it.
std::string_view TakeLine(std::string_view& text);

} // namespace NimaPost
