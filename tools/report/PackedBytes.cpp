#include "tools/report/PackedBytes.h"

#include <algorithm>
#include <cstdint>
#include <stdexcept>

#include <zlib.h>

namespace NimaPost {

namespace {

/// Beyond this, pages hardly become smaller, and take much longer.
constexpr int kEffort = 5;
constexpr int kBareDeflate = -15;
constexpr int kDefaultMemory = 8;
constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

void AppendDeflated(std::string& out, std::string_view bytes) {
    z_stream stream{};
    if (deflateInit2(&stream, kEffort, Z_DEFLATED, kBareDeflate, kDefaultMemory, Z_DEFAULT_STRATEGY) !=
        Z_OK) {
        throw std::runtime_error("no memory to pack the page's rows");
    }
    const std::size_t front = out.size();
    out.resize(front + deflateBound(&stream, static_cast<uLong>(bytes.size())));
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data() + front);
    stream.avail_out = static_cast<uInt>(out.size() - front);
    const int result = deflate(&stream, Z_FINISH);
    out.resize(out.size() - stream.avail_out);
    deflateEnd(&stream);
    if (result != Z_STREAM_END) {
        throw std::runtime_error("the page's rows could not be packed");
    }
}

std::string Base64(std::string_view bytes) {
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - at);
        std::uint32_t group = 0;
        for (std::size_t i = 0; i < 3; ++i) {
            group = group << 8 | (i < count ? static_cast<unsigned char>(bytes[at + i]) : 0U);
        }
        for (std::size_t i = 0; i < 4; ++i) {
            out += i <= count ? kDigits[group >> (18 - 6 * i) & 63U] : '=';
        }
    }
    return out;
}

} // namespace

std::string Packed(std::string_view bytes) {
    std::string packed;
    for (unsigned shift = 0; shift < 32; shift += 8) {
        packed += static_cast<char>(bytes.size() >> shift & 0xFF);
    }
    AppendDeflated(packed, bytes);
    return Base64(packed);
}

} // namespace NimaPost
