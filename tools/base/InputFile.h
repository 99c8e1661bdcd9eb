#pragma once

#include "tools/base/Descriptor.h"
#include "tools/base/FileIdentity.h"
#include "tools/base/Findings.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace NimaPost {

/// Text that is read as a whole is read as far as this.
inline constexpr std::uint64_t kMostTextBytes = 64 << 20;
/// What a file is can be told from as much of its front.
inline constexpr std::uint64_t kFrontBytes = 8192;

/// A regular file opened only for reading. It is read, never mapped: a file that a live process cuts short
/// must not take its reader down.
class InputFile {
  public:
    /// Empty if there is nothing to read; `problem` then says why. Devices, pipes and folders are refused.
    static std::optional<InputFile> Open(const std::string& path, std::string& problem);

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
    /// Adds that to the findings, if there is anything to add.
    void ReportReadProblem(Findings& findings) const;

    const std::string& Path() const { return path_; }
    const FileIdentity& Identity() const { return identity_; }

  private:
    InputFile(std::string path, Descriptor descriptor)
        : path_(std::move(path)), descriptor_(std::move(descriptor)) {}

    std::string path_;
    Descriptor descriptor_;
    std::uint64_t size_ = 0;
    FileIdentity identity_;
    mutable int readError_ = 0;
    mutable bool becameShorter_ = false;
};

} // namespace NimaPost
