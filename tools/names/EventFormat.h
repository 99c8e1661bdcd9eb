#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace NimaPost {

/// The number of 32-bit arguments that a printf text of the dictionary takes; empty if the text has any
/// conversion other than %d %i %u %x %X %o %c %p and %T, which is four bytes of a text.
std::optional<std::size_t> CountArguments(std::string_view format);

/// Puts arguments into such a text, in a form that can be shown on a terminal. Surplus arguments follow in
/// hexadecimal; missing ones show as "?".
void AppendFormatted(std::string& out, std::string_view format, std::span<const std::uint32_t> arguments);

} // namespace NimaPost
