#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace NimaPost {

/// Fields of Protocol Buffers messages, as they stand one after the other in a message.

void AppendNumberField(std::string& out, std::uint32_t field, std::uint64_t value);
void AppendBytesField(std::string& out, std::uint32_t field, std::string_view bytes);

/// What stands in front of a message or a text of this length.
void AppendLengthHead(std::string& out, std::uint32_t field, std::size_t length);

/// A message within the message; `fill` appends its fields to `out`.
template <class Fill>
void AppendMessageField(std::string& out, std::uint32_t field, const Fill& fill) {
    const std::size_t begin = out.size();
    fill();
    std::string head;
    AppendLengthHead(head, field, out.size() - begin);
    out.insert(begin, head);
}

} // namespace NimaPost
