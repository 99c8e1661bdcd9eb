#include "tools/base/InputFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NimaPost {

InputFile::InputFile(InputFile&& other) noexcept
    : path_(std::move(other.path_)),
      descriptor_(std::exchange(other.descriptor_, -1)),
      size_(other.size_),
      device_(other.device_),
      inode_(other.inode_) {}

InputFile& InputFile::operator=(InputFile&& other) noexcept {
    std::swap(path_, other.path_);
    std::swap(descriptor_, other.descriptor_);
    std::swap(size_, other.size_);
    std::swap(device_, other.device_);
    std::swap(inode_, other.inode_);
    return *this;
}

InputFile::~InputFile() {
    if (descriptor_ >= 0) {
        close(descriptor_);
    }
}

std::optional<InputFile> InputFile::Open(const std::string& path, std::string& problem) {
    // Without O_NONBLOCK a pipe without a writer would keep the program waiting here.
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        problem = path + ": " + std::strerror(errno);
        return std::nullopt;
    }
    InputFile file(path, descriptor);
    struct stat status {};
    if (fstat(descriptor, &status) != 0) {
        problem = path + ": " + std::strerror(errno);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        problem = path + ": not a regular file";
        return std::nullopt;
    }
    file.size_ = static_cast<std::uint64_t>(status.st_size);
    file.device_ = status.st_dev;
    file.inode_ = status.st_ino;
    return file;
}

bool InputFile::Refresh() {
    struct stat status {};
    if (fstat(descriptor_, &status) == 0) {
        size_ = static_cast<std::uint64_t>(status.st_size);
    }
    return stat(path_.c_str(), &status) == 0 && status.st_dev == device_ && status.st_ino == inode_;
}

std::size_t InputFile::ReadAt(std::uint64_t offset, std::span<char> bytes) const {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got =
            pread(descriptor_, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        done += static_cast<std::size_t>(got);
    }
    return done;
}

std::string InputFile::ReadAll(std::uint64_t limit) const {
    std::string bytes(static_cast<std::size_t>(std::min(size_, limit)), '\0');
    bytes.resize(ReadAt(0, bytes));
    return bytes;
}

} // namespace NimaPost
