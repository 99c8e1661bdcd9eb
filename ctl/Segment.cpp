#include "ctl/Segment.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <string_view>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <pwd.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NimaCtl {

namespace {

using NimaPost::Descriptor;

void OnBusError(int /*signal*/) {
    constexpr std::string_view kText =
        "nima-ctl: the segment was cut by another process while it was in use\n";
    const ssize_t ignored = write(STDERR_FILENO, kText.data(), kText.size());
    static_cast<void>(ignored);
    _exit(2);
}

std::string UserName(uid_t user) {
    std::vector<char> room(4096);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(user, &entry, room.data(), room.size(), &found) == 0 && found != nullptr) {
        return std::string(found->pw_name) + " (" + std::to_string(user) + ")";
    }
    return std::to_string(user);
}

std::string MissingRight(const std::string& path, Access access) {
    struct stat status {};
    std::string text =
        path + ": this user may not " + (access == Access::kWrite ? "write" : "read") + " the segment";
    if (stat(path.c_str(), &status) == 0) {
        text += "; it belongs to user " + UserName(status.st_uid);
    }
    return text;
}

std::string WhyNot(const std::string& path, Access access) {
    switch (errno) {
        case ENOENT:
            return path + ": there is no such segment; no process has used it in this directory yet";
        case EACCES:
        case EPERM:
            return MissingRight(path, access);
        default:
            return path + ": " + std::strerror(errno);
    }
}

} // namespace

Descriptor OpenExisting(const std::string& path, Access access, std::string& problem) {
    // Without O_NONBLOCK the program would wait here on a pipe without a writer.
    Descriptor file(
        open(path.c_str(), (access == Access::kWrite ? O_RDWR : O_RDONLY) | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!file || fstat(file.Number(), &status) != 0) {
        problem = WhyNot(path, access);
        return {};
    }
    if (!S_ISREG(status.st_mode)) {
        problem = path + ": not a regular file";
        return {};
    }
    return file;
}

std::optional<Segment> Segment::Map(const std::string& path, std::size_t bytes, Access access,
                                    std::string& problem) {
    Descriptor file = OpenExisting(path, access, problem);
    struct stat status {};
    if (!file || fstat(file.Number(), &status) != 0) {
        return std::nullopt;
    }
    if (status.st_size < static_cast<off_t>(bytes)) {
        problem = path + ": is cut: " + std::to_string(status.st_size) + " bytes of at least " +
                  std::to_string(bytes);
        return std::nullopt;
    }
    struct sigaction action {};
    action.sa_handler = OnBusError;
    sigaction(SIGBUS, &action, nullptr);
    const int protection = access == Access::kWrite ? PROT_READ | PROT_WRITE : PROT_READ;
    void* const mapped = mmap(nullptr, bytes, protection, MAP_SHARED, file.Number(), 0);
    if (mapped == MAP_FAILED) {
        problem = path + ": " + std::strerror(errno);
        return std::nullopt;
    }
    return Segment(std::move(file), mapped, bytes);
}

Segment::Segment(Segment&& other) noexcept
    : descriptor_(std::move(other.descriptor_)),
      bytes_(std::exchange(other.bytes_, nullptr)),
      size_(other.size_) {}

Segment::~Segment() {
    if (bytes_ != nullptr) {
        munmap(bytes_, size_);
    }
}

} // namespace NimaCtl
