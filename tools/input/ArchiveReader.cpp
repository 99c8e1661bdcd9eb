// On 32-bit ARM the library that unpacks has seconds of 32 bits.
#undef _TIME_BITS

#include "tools/input/ArchiveReader.h"

#include "tools/input/GzipFront.h"
#include "tools/input/ZipNames.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <map>
#include <numeric>
#include <span>
#include <utility>
#include <vector>

#include <archive.h>
#include <archive_entry.h>

namespace NimaPost {

namespace {

constexpr std::size_t kBlock = 1 << 16;
constexpr std::size_t kTarBlock = 512;
constexpr std::size_t kTarSum = 148;
constexpr std::size_t kTarSumBytes = 8;

using namespace std::string_view_literals;

constexpr std::string_view kGzip = "\x1f\x8b\x08";
constexpr std::array kMagics{
    kGzip,
    "BZh"sv, // bzip2
    "\xfd"
    "7zXZ\0"sv,           // xz
    "\x28\xb5\x2f\xfd"sv, // zstd
    "PK\x03\x04"sv,       // zip
    "PK\x05\x06"sv,       // zip without members
};

/// A tar header holds the sum of its own bytes, that of the sum taken as blanks.
bool IsTarHeader(std::string_view front) {
    if (front.size() < kTarBlock || front[0] == '\0') {
        return false;
    }
    const std::string_view field = front.substr(kTarSum, kTarSumBytes);
    const std::size_t first = std::min(field.find_first_not_of(' '), field.size());
    std::uint64_t sum = 0;
    std::size_t digits = 0;
    for (const char digit : field.substr(first)) {
        if (digit < '0' || digit > '7') {
            break;
        }
        sum = sum * 8 + static_cast<std::uint64_t>(digit - '0');
        ++digits;
    }
    const auto add = [](std::uint64_t all, char byte) { return all + static_cast<unsigned char>(byte); };
    const std::string_view before = front.substr(0, kTarSum);
    const std::string_view after = front.substr(kTarSum + kTarSumBytes, kTarBlock - kTarSum - kTarSumBytes);
    const std::uint64_t blanks = kTarSumBytes * std::uint64_t{' '};
    const std::uint64_t actual = std::accumulate(
        after.begin(), after.end(), std::accumulate(before.begin(), before.end(), blanks, add), add);
    return digits > 0 && sum == actual;
}

/// Formats and compressions are named one by one: some that the library knows open other files of this
/// machine, and some call programs.
bool Support(archive* reader) {
    return archive_read_support_format_tar(reader) == ARCHIVE_OK &&
           archive_read_support_format_zip(reader) == ARCHIVE_OK &&
           archive_read_support_format_raw(reader) == ARCHIVE_OK &&
           archive_read_support_format_empty(reader) == ARCHIVE_OK &&
           archive_read_support_filter_gzip(reader) == ARCHIVE_OK &&
           archive_read_support_filter_bzip2(reader) == ARCHIVE_OK &&
           archive_read_support_filter_xz(reader) == ARCHIVE_OK &&
           archive_read_support_filter_zstd(reader) == ARCHIVE_OK;
}

ArchiveMember::Kind KindOf(archive_entry* entry) {
    if (archive_entry_hardlink(entry) != nullptr) {
        return ArchiveMember::Kind::kLink;
    }
    switch (archive_entry_filetype(entry)) {
        case AE_IFREG:
            return ArchiveMember::Kind::kFile;
        case AE_IFDIR:
            return ArchiveMember::Kind::kFolder;
        case AE_IFLNK:
            return ArchiveMember::Kind::kLink;
        default:
            return ArchiveMember::Kind::kSpecial;
    }
}

std::string NameOf(archive_entry* entry) {
    const char* name = archive_entry_pathname_utf8(entry);
    if (name == nullptr) {
        name = archive_entry_pathname(entry);
    }
    return name != nullptr ? name : "";
}

} // namespace

bool LooksPacked(std::string_view front) {
    return std::any_of(kMagics.begin(), kMagics.end(),
                       [&](std::string_view magic) { return front.starts_with(magic); }) ||
           IsTarHeader(front);
}

/// The library's reader and what its callbacks work on.
struct ArchiveReader::State {
    State(const InputFile& input, bool salvage) : file(input), reader(archive_read_new()) {
        if (salvage) {
            front.emplace(input);
        }
    }
    State(const State&) = delete;
    State& operator=(const State&) = delete;
    ~State() { archive_read_free(reader); }

    static la_ssize_t ReadFile(archive* /*reader*/, void* data, const void** bytes) {
        auto& state = *static_cast<State*>(data);
        std::size_t got = 0;
        if (state.front) {
            got = state.front->Read(state.block);
        } else {
            got = state.file.ReadAt(state.offset, state.block);
            state.offset += got;
        }
        *bytes = state.block.data();
        return static_cast<la_ssize_t>(got);
    }
    static la_int64_t Seek(archive* /*reader*/, void* data, la_int64_t offset, int whence) {
        auto& state = *static_cast<State*>(data);
        const auto size = static_cast<la_int64_t>(state.file.Size());
        const la_int64_t from = whence == SEEK_SET   ? 0
                                : whence == SEEK_CUR ? static_cast<la_int64_t>(state.offset)
                                                     : size;
        state.offset = static_cast<std::uint64_t>(std::clamp<la_int64_t>(from + offset, 0, size));
        return static_cast<la_int64_t>(state.offset);
    }
    static la_int64_t Skip(archive* /*reader*/, void* data, la_int64_t wanted) {
        auto& state = *static_cast<State*>(data);
        const std::uint64_t rest = state.file.Size() - std::min(state.file.Size(), state.offset);
        const auto step =
            std::min<std::uint64_t>(rest, static_cast<std::uint64_t>(std::max<la_int64_t>(wanted, 0)));
        state.offset += step;
        return static_cast<la_int64_t>(step);
    }

    void Open() {
        archive_read_set_read_callback(reader, ReadFile);
        if (!front) {
            archive_read_set_seek_callback(reader, Seek);
            archive_read_set_skip_callback(reader, Skip);
        }
        archive_read_set_callback_data(reader, this);
        ended = !Support(reader) || archive_read_open1(reader) != ARCHIVE_OK;
        if (ended) {
            NoteProblem();
        }
    }
    void NoteProblem() {
        const char* const text = archive_error_string(reader);
        problem = text != nullptr ? text : "unknown format";
    }
    /// The library takes the backslashes of every zip member for slashes if it has no slash.
    std::string GivenName(std::string name) {
        if ((archive_format(reader) & ARCHIVE_FORMAT_BASE_MASK) != ARCHIVE_FORMAT_ZIP) {
            return name;
        }
        if (!backslashNames) {
            backslashNames = BackslashNames(file);
        }
        const auto given = backslashNames->find(name);
        return given != backslashNames->end() ? given->second : name;
    }
    /// What a member leaves out is zero.
    bool Zeros(std::string_view& bytes) {
        if (held.bytes.empty() || position >= held.offset) {
            return false;
        }
        static constexpr std::array<char, kBlock> kZeros{};
        const std::uint64_t length = std::min<std::uint64_t>(held.offset - position, kZeros.size());
        bytes = {kZeros.data(), static_cast<std::size_t>(length)};
        position += length;
        return true;
    }

    const InputFile& file;
    std::optional<std::map<std::string, std::string>> backslashNames;
    std::optional<GzipFront> front; ///< in place of the file's own bytes
    archive* reader;
    std::vector<char> block = std::vector<char>(kBlock);
    std::uint64_t offset = 0; ///< in the file, of what the library asks for next
    bool ended = false;
    bool memberEnded = true;
    bool cut = false;           ///< the member ended before its end
    std::uint64_t position = 0; ///< in the member
    /// Of the member, perhaps after a hole.
    struct {
        std::uint64_t offset = 0;
        std::string_view bytes;
    } held;
    std::string problem;
};

ArchiveReader::ArchiveReader(const InputFile& file, bool salvage)
    : state_(std::make_unique<State>(file, salvage)) {
    state_->Open();
}

ArchiveReader::~ArchiveReader() = default;

bool ArchiveReader::Next(ArchiveMember& member) {
    State& state = *state_;
    while (!state.ended) {
        archive_entry* entry = nullptr;
        const int result = archive_read_next_header(state.reader, &entry);
        if (result == ARCHIVE_RETRY) {
            state.NoteProblem();
            continue;
        }
        // A warning is about what only an extracted file would need.
        if (result != ARCHIVE_OK && result != ARCHIVE_WARN) {
            state.ended = true;
            if (result != ARCHIVE_EOF) {
                state.NoteProblem();
            }
            break;
        }
        member.name = state.GivenName(NameOf(entry));
        member.kind = KindOf(entry);
        member.encrypted = archive_entry_is_encrypted(entry) != 0;
        member.modified = archive_entry_mtime_is_set(entry) != 0
                              ? ModificationTime(archive_entry_mtime(entry), archive_entry_mtime_nsec(entry))
                              : std::nullopt;
        state.memberEnded = false;
        state.cut = false;
        state.position = 0;
        state.held = {};
        return true;
    }
    return false;
}

bool ArchiveReader::IsCompressedFile() const {
    return archive_format(state_->reader) == ARCHIVE_FORMAT_RAW;
}

bool ArchiveReader::CanSkip() const {
    return (archive_format(state_->reader) & ARCHIVE_FORMAT_BASE_MASK) == ARCHIVE_FORMAT_ZIP;
}

bool ArchiveReader::Read(std::string_view& bytes) {
    State& state = *state_;
    for (;;) {
        if (state.Zeros(bytes)) {
            return true;
        }
        if (!state.held.bytes.empty()) {
            bytes = std::exchange(state.held.bytes, {});
            state.position += bytes.size();
            return true;
        }
        if (state.ended || state.memberEnded) {
            return false;
        }
        const void* data = nullptr;
        std::size_t size = 0;
        la_int64_t offset = 0;
        const int result = archive_read_data_block(state.reader, &data, &size, &offset);
        if (result == ARCHIVE_EOF) {
            state.memberEnded = true;
        } else if (result != ARCHIVE_OK) {
            state.NoteProblem();
            state.memberEnded = result != ARCHIVE_WARN || data == nullptr || size == 0;
            state.cut = state.cut || state.memberEnded;
            state.ended = result == ARCHIVE_FATAL;
        }
        if ((result == ARCHIVE_OK || result == ARCHIVE_WARN) && data != nullptr) {
            state.held = {static_cast<std::uint64_t>(std::max<la_int64_t>(offset, 0)),
                          {static_cast<const char*>(data), size}};
        }
    }
}

bool ArchiveReader::WasWhole() const {
    return !state_->cut;
}

bool ArchiveReader::CanSalvage() const {
    return !state_->front && state_->file.ReadAll(kGzip.size()) == kGzip;
}

std::uint64_t ArchiveReader::Consumed() const {
    return state_->front ? state_->front->Consumed()
                         : static_cast<std::uint64_t>(
                               std::max<la_int64_t>(archive_filter_bytes(state_->reader, -1), 0));
}

std::string ArchiveReader::TakeProblem() {
    return std::exchange(state_->problem, {});
}

} // namespace NimaPost
