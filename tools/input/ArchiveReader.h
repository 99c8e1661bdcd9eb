#pragma once

#include "tools/base/InputFile.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace NimaPost {

/// Whether a file begins as an archive (tar, zip) or a compressed file (gzip, bzip2, xz, zstd) does.
bool LooksPacked(std::string_view front);

/// What an archive tells of one of its members.
struct ArchiveMember {
    enum class Kind : unsigned char { kFile, kFolder, kLink, kSpecial };

    std::string name; ///< as it stands in the archive, which may lead anywhere
    Kind kind = Kind::kFile;
    bool encrypted = false;
    std::optional<std::int64_t> modified; ///< nanoseconds since 1970
};

/// Reads an archive, or a compressed file as an archive of one member without a name, from front to end.
/// Nothing is ever written, and no other program is called.
class ArchiveReader {
  public:
    /// The file must outlive the reader. With `salvage`, a gzip file is read up to the byte where it is
    /// damaged, which otherwise loses what stands in the 64 KiB before.
    explicit ArchiveReader(const InputFile& file, bool salvage = false);
    ArchiveReader(const ArchiveReader&) = delete;
    ArchiveReader& operator=(const ArchiveReader&) = delete;
    ~ArchiveReader();

    /// Goes on to the next member. False at the end, or where nothing more can be read.
    bool Next(ArchiveMember& member);
    /// Whether it is only a compressed file; known once there is a member.
    bool IsCompressedFile() const;
    /// Whether members that nobody wants cost nothing.
    bool CanSkip() const;
    /// The next bytes of the member, which stay valid until the next call. False at its end, or where the
    /// rest of it cannot be read.
    bool Read(std::string_view& bytes);
    /// Whether another reader with `salvage` may find more where this one met damage.
    bool CanSalvage() const;
    /// Whether the member was read to its end.
    bool WasWhole() const;
    /// How many bytes of the file have been read so far.
    std::uint64_t Consumed() const;

    /// What was wrong since the last call, in the words of the library that unpacks; empty if nothing was.
    std::string TakeProblem();

  private:
    struct State;
    std::unique_ptr<State> state_;
};

} // namespace NimaPost
