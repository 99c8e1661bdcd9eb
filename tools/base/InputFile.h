#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include <sys/types.h>

namespace NimaPost {

/// A regular file opened for reading alone. It is read, never mapped: a file that a live process cuts short
/// must not take its reader down.
class InputFile {
  public:
    InputFile(InputFile&& other) noexcept;
    InputFile& operator=(InputFile&& other) noexcept;
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;
    ~InputFile();

    /// Empty when there is nothing to read; then `problem` says why. Devices, pipes and folders are refused.
    static std::optional<InputFile> Open(const std::string& path, std::string& problem);

    /// The size as it was when the file was opened, or at the last `Refresh`.
    std::uint64_t Size() const { return size_; }
    /// Asks for the size anew, and whether the path still names this file.
    bool Refresh();

    /// Reads up to `bytes.size()` bytes at an offset; returns how many there were, less at the file's end or
    /// where the medium fails.
    std::size_t ReadAt(std::uint64_t offset, std::span<char> bytes) const;
    /// The whole file, at most `limit` bytes of it.
    std::string ReadAll(std::uint64_t limit) const;

    const std::string& Path() const { return path_; }

  private:
    InputFile(std::string path, int descriptor) : path_(std::move(path)), descriptor_(descriptor) {}

    std::string path_;
    int descriptor_ = -1;
    std::uint64_t size_ = 0;
    dev_t device_ = 0;
    ino_t inode_ = 0;
};

} // namespace NimaPost
