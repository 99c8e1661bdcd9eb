#include "tools/base/Protobuf.h"

#include "tools/base/Varint.h"

namespace NimaPost {

namespace {

constexpr std::uint32_t kVarint = 0;
constexpr std::uint32_t kLengthDelimited = 2;

void AppendKey(std::string& out, std::uint32_t field, std::uint32_t wireType) {
    AppendVarint(out, field << 3 | wireType);
}

} // namespace

void AppendNumberField(std::string& out, std::uint32_t field, std::uint64_t value) {
    AppendKey(out, field, kVarint);
    AppendVarint(out, value);
}

void AppendBytesField(std::string& out, std::uint32_t field, std::string_view bytes) {
    AppendLengthHead(out, field, bytes.size());
    out += bytes;
}

void AppendLengthHead(std::string& out, std::uint32_t field, std::size_t length) {
    AppendKey(out, field, kLengthDelimited);
    AppendVarint(out, length);
}

} // namespace NimaPost
