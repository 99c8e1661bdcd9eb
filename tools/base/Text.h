#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace NimaPost {

/// Appends text from a device so that a terminal shows it and does nothing else: control characters and bytes
/// that are no UTF-8 become \xNN; characters that nobody sees or that turn the direction of text around
/// become \uNNNN.
void AppendPrintable(std::string& out, std::string_view text);
std::string Printable(std::string_view text);

/// The same text as valid UTF-8: bytes that are none become U+FFFD. NULs stay.
std::string ToUtf8(std::string_view bytes);

void AppendDecimal(std::string& out, std::int64_t value);
/// Eight digits with leading zeros and "0x".
void AppendHex32(std::string& out, std::uint32_t value);
/// As few digits as it takes, with "0x".
void AppendHex(std::string& out, std::uint64_t value);
std::string Hex(std::uint64_t value);
std::string Hex32(std::uint32_t value);

/// Nanoseconds as signed seconds with nine places: "+12.345678901".
void AppendSeconds(std::string& out, std::int64_t nanoseconds);

/// "1 record", "2 records".
std::string Counted(std::uint64_t count, std::string_view noun);

/// The next decimal number of a text; advances behind it. False, and nothing changed, where there is none or
/// it does not fit.
bool TakeDecimal(std::string_view& text, std::int64_t& value);
/// The same for hexadecimal digits without "0x".
bool TakeHex(std::string_view& text, std::uint64_t& value);
bool TakeLiteral(std::string_view& text, std::string_view literal);
/// "17", "0x11": a whole text that is one number.
bool ParseNumber(std::string_view text, std::uint64_t& value);

/// Case-insensitive for ASCII, as an engineer types a level or a name.
bool EqualNoCase(std::string_view a, std::string_view b);

/// Without the CR LF or LF at its end.
std::string_view WithoutLineEnd(std::string_view line);
/// The next line of a text that is not empty, without its end; advances to the one after it.
std::string_view TakeLine(std::string_view& text);

} // namespace NimaPost
