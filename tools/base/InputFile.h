#pragma once

#include "tools/base/Descriptor.h"
#include "tools/base/FileIdentity.h"
#include "tools/base/Findings.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

namespace NimaPost {

/// Text that is read as a whole is read as far as this.
inline constexpr std::uint64_t kMostTextBytes = 64 << 20;
/// What a file is can be told from as much of its front.
inline constexpr std::uint64_t kFrontBytes = 8192;

/// A line that is longer is cut.
inline constexpr std::uint64_t kMostLineBytes = 1 << 20;

/// A file's time, in nanoseconds since 1970; empty where no time of a device can be so.
std::optional<std::int64_t> ModificationTime(std::int64_t seconds, std::int64_t nanoseconds);

/// Bytes that have no file of their own: in memory, or a part of a file without a name.
struct UnpackedBytes {
    std::string memory;
    std::shared_ptr<const Descriptor> file; ///< null where they are in memory
    std::uint64_t begin = 0;                ///< in the file
    std::uint64_t size = 0;
};

/// What a command reads: a regular file that was opened only for reading, or bytes that were unpacked. A file
/// is read, never mapped: one that a live process cuts short must not take its reader down.
class InputFile {
  public:
    /// Empty if there is nothing to read; `problem` then says why. Devices, pipes and folders are refused.
    static std::optional<InputFile> Open(const std::string& path, std::string& problem);
    /// `path` is what people are told. It is identical to no other file.
    static InputFile Of(std::string path, UnpackedBytes bytes);

    /// The size as it was when the file was opened, or at the last `Refresh`.
    std::uint64_t Size() const { return size_; }
    /// Updates the size. Returns whether the path still names this file.
    bool Refresh();

    /// Reads up to `bytes.size()` bytes at an offset. Returns the number of bytes read, which is less at the
    /// file's end or if reading fails.
    std::size_t ReadAt(std::uint64_t offset, std::span<char> bytes) const;
    /// The whole file, but at most `limit` bytes of it.
    std::string ReadAll(std::uint64_t limit) const;

    /// Why the system last refused to read, empty if it never did. A file that ends early is no refusal.
    std::string ReadError() const;
    /// Why reading failed at some point, "Input/output error" for example; empty if it never did. The end of
    /// the file is no failure, unless it comes before `Size`: the file was then cut while it was read.
    std::string ReadProblem() const;
    /// Says that a line was cut since it was too long; empty if none was.
    std::string LimitProblem() const;
    /// Adds both to the findings, if there is anything to add.
    void ReportReadProblem(Findings& findings) const;

    const std::string& Path() const { return path_; }
    /// The path as it was before the file was compressed: "device.log.1" of "device.log.1.xz".
    const std::string& PlainPath() const { return plainPath_.empty() ? path_ : plainPath_; }
    void SetPlainPath(std::string path) { plainPath_ = std::move(path); }
    const FileIdentity& Identity() const { return identity_; }
    /// When it was changed last, in nanoseconds since 1970; empty where nothing tells.
    std::optional<std::int64_t> Modified() const { return modified_; }
    void SetModified(std::optional<std::int64_t> modified) { modified_ = modified; }

    /// A line of it that has more bytes is cut.
    std::uint64_t MostLineBytes() const { return mostLineBytes_; }
    void SetMostLineBytes(std::uint64_t bytes) { mostLineBytes_ = bytes; }
    /// Notes that a line was cut there.
    void NoteCutLine() const { cutLine_ = true; }

  private:
    InputFile(std::string path, UnpackedBytes bytes) : path_(std::move(path)), bytes_(std::move(bytes)) {}

    std::size_t ReadMemory(std::uint64_t offset, std::span<char> bytes) const;

    std::string path_;
    std::string plainPath_;
    UnpackedBytes bytes_;
    bool isPart_ = false; ///< ends at its size, whatever follows
    std::uint64_t size_ = 0;
    std::uint64_t mostLineBytes_ = kMostLineBytes;
    std::optional<std::int64_t> modified_;
    FileIdentity identity_;
    mutable int readError_ = 0;
    mutable bool becameShorter_ = false;
    mutable bool cutLine_ = false;
};

} // namespace NimaPost
