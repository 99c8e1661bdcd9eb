#include "ctl/Archive.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <new>
#include <numeric>

#include <zlib.h>

namespace NimaCtl {

namespace {

constexpr std::size_t kBlock = 512;
constexpr std::size_t kNameBytes = 100;
constexpr std::uint64_t kMostArchivedBytes =
    (std::uint64_t{1} << 33) - 1; ///< that the size of a block can say
constexpr int kGzip = 15 + 16;    ///< the largest window, with a gzip head and tail
constexpr int kMemoryLevel = 8;

/// A block of a tar archive.
struct Ustar {
    char name[kNameBytes];
    char mode[8];
    char user[8];
    char group[8];
    char size[12];
    char modified[12];
    char checksum[8];
    char kind;
    char link[100];
    char magic[8];
    char userName[32];
    char groupName[32];
    char device[16];
    char prefix[155];
    char unused[12];
};
static_assert(sizeof(Ustar) == kBlock);

template <std::size_t kSize>
void Octal(char (&field)[kSize], std::uint64_t value) {
    char digits[24];
    std::snprintf(digits, sizeof(digits), "%0*llo", static_cast<int>(kSize - 1),
                  static_cast<unsigned long long>(value));
    std::memcpy(field, digits, kSize);
}

/// "LENGTH KEY=VALUE\n", where the length counts its own digits.
std::string PaxRecord(const std::string& key, const std::string& value) {
    const std::string rest = " " + key + "=" + value + "\n";
    std::size_t length = rest.size() + 1;
    while (std::to_string(length).size() + rest.size() != length) {
        ++length;
    }
    return std::to_string(length) + rest;
}

} // namespace

struct Archive::Compressor {
    z_stream stream{};
    std::array<char, 1 << 16> room{};
};

Archive::Archive(NimaPost::Output& out) : out_(out), compressor_(std::make_unique<Compressor>()) {
    if (deflateInit2(&compressor_->stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, kGzip, kMemoryLevel,
                     Z_DEFAULT_STRATEGY) != Z_OK) {
        throw std::bad_alloc();
    }
}

Archive::~Archive() {
    deflateEnd(&compressor_->stream);
}

void Archive::Compress(std::string_view bytes, bool last) {
    z_stream& stream = compressor_->stream;
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data()));
    stream.avail_in = static_cast<uInt>(bytes.size());
    do {
        stream.next_out = reinterpret_cast<Bytef*>(compressor_->room.data());
        stream.avail_out = static_cast<uInt>(compressor_->room.size());
        deflate(&stream, last ? Z_FINISH : Z_NO_FLUSH);
        out_.Write({compressor_->room.data(), compressor_->room.size() - stream.avail_out});
    } while (stream.avail_out == 0);
}

void Archive::Header(const std::string& name, std::uint64_t bytes, std::int64_t modifiedSeconds, char kind) {
    constexpr unsigned kMode = 0644;
    Ustar header{};
    std::memcpy(header.name, name.data(), std::min(name.size(), kNameBytes));
    Octal(header.mode, kMode);
    Octal(header.user, 0);
    Octal(header.group, 0);
    Octal(header.size, bytes);
    Octal(header.modified, static_cast<std::uint64_t>(std::max<std::int64_t>(modifiedSeconds, 0)));
    header.kind = kind;
    std::memcpy(header.magic, "ustar\00000", sizeof(header.magic));
    std::memset(header.checksum, ' ', sizeof(header.checksum));
    const auto* const all = reinterpret_cast<const unsigned char*>(&header);
    const unsigned sum = std::accumulate(all, all + kBlock, 0U);
    std::snprintf(header.checksum, sizeof(header.checksum), "%06o", sum);
    Compress({reinterpret_cast<const char*>(&header), kBlock}, false);
}

void Archive::Begin(const std::string& name, std::uint64_t bytes, std::int64_t modifiedSeconds) {
    std::string pax;
    if (name.size() > kNameBytes) {
        pax += PaxRecord("path", name);
    }
    if (bytes > kMostArchivedBytes) {
        pax += PaxRecord("size", std::to_string(bytes));
    }
    if (!pax.empty()) {
        Header("more-of-the-next", pax.size(), modifiedSeconds, 'x');
        inFile_ = 0;
        Write(pax);
        End();
    }
    Header(name, bytes > kMostArchivedBytes ? 0 : bytes, modifiedSeconds, '0');
    inFile_ = 0;
}

void Archive::Write(std::string_view bytes) {
    inFile_ += bytes.size();
    Compress(bytes, false);
}

void Archive::End() {
    const std::size_t rest = static_cast<std::size_t>(inFile_ % kBlock);
    if (rest > 0) {
        Compress(std::string(kBlock - rest, '\0'), false);
    }
}

void Archive::Add(const std::string& name, std::string_view content, std::int64_t modifiedSeconds) {
    Begin(name, content.size(), modifiedSeconds);
    Write(content);
    End();
}

void Archive::Finish() {
    Compress(std::string(2 * kBlock, '\0'), true);
}

} // namespace NimaCtl
