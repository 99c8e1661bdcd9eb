#include "tools/base/Varint.h"

namespace NimaPost {

void AppendVarint(std::string& out, std::uint64_t value) {
    for (; value >= 0x80; value >>= 7) {
        out += static_cast<char>((value & 0x7F) | 0x80);
    }
    out += static_cast<char>(value);
}

void AppendSignedVarint(std::string& out, std::int64_t value) {
    const auto bits = static_cast<std::uint64_t>(value);
    AppendVarint(out, value < 0 ? ~(bits << 1) : bits << 1);
}

void DropVarints(std::string& bytes, std::size_t count) {
    std::size_t at = 0;
    for (; at < bytes.size() && count > 0; ++at) {
        count -= (static_cast<unsigned char>(bytes[at]) & 0x80U) == 0 ? 1 : 0;
    }
    bytes.erase(0, at);
}

} // namespace NimaPost
