#include "ctl/block/Segment.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstring>
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

/// A mapping that the handler may find cut.
struct Place {
    std::atomic<char*> begin{nullptr};
    std::size_t size = 0;
    std::atomic<bool> lost{false};
};
constinit std::array<Place, 4> places{};

Place* PlaceOf(const void* address) {
    const auto wanted = reinterpret_cast<std::uintptr_t>(address);
    for (Place& place : places) {
        const auto begin = reinterpret_cast<std::uintptr_t>(place.begin.load());
        if (begin != 0 && wanted >= begin && wanted - begin < place.size) {
            return &place;
        }
    }
    return nullptr;
}

void OnBusError(int signal, siginfo_t* info, void* /*context*/) {
    const int before = errno;
    Place* const place = PlaceOf(info->si_addr);
    if (place != nullptr && mmap(place->begin, place->size, PROT_READ | PROT_WRITE,
                                 MAP_PRIVATE | MAP_ANONYMOUS | MAP_FIXED, -1, 0) != MAP_FAILED) {
        place->lost = true;
    } else {
        std::signal(signal, SIG_DFL);
    }
    errno = before;
}

/// Returns false if too many are mapped already.
bool Watch(void* begin, std::size_t size) {
    for (Place& place : places) {
        if (place.begin == nullptr) {
            place.size = size;
            place.lost = false;
            place.begin = static_cast<char*>(begin);
            struct sigaction action {};
            action.sa_sigaction = OnBusError;
            action.sa_flags = SA_SIGINFO;
            sigaction(SIGBUS, &action, nullptr);
            return true;
        }
    }
    return false;
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
    const std::string verb = access == Access::kWrite ? "write" : "read";
    if (stat(path.c_str(), &status) == 0) {
        const bool ownerMay = (status.st_mode & (access == Access::kWrite ? S_IWUSR : S_IRUSR)) != 0;
        return path + ": this user may not " + verb + " the segment; it belongs to user " +
               UserName(status.st_uid) + (ownerMay ? "" : ", who may not " + verb + " it either");
    }
    const std::string directory = path.substr(0, path.find_last_of('/'));
    return path + ": this user may not look into the directory" +
           (stat(directory.c_str(), &status) == 0 ? "; it belongs to user " + UserName(status.st_uid)
                                                  : std::string());
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
    const int protection = access == Access::kWrite ? PROT_READ | PROT_WRITE : PROT_READ;
    void* const mapped = mmap(nullptr, bytes, protection, MAP_SHARED, file.Number(), 0);
    if (mapped == MAP_FAILED) {
        problem = path + ": " + std::strerror(errno);
        return std::nullopt;
    }
    if (!Watch(mapped, bytes)) {
        munmap(mapped, bytes);
        problem = path + ": too many segments are mapped";
        return std::nullopt;
    }
    return Segment(path, std::move(file), mapped, bytes);
}

Segment::Segment(Segment&& other) noexcept
    : path_(std::move(other.path_)),
      descriptor_(std::move(other.descriptor_)),
      bytes_(std::exchange(other.bytes_, nullptr)),
      size_(other.size_) {}

Segment::~Segment() {
    if (bytes_ != nullptr) {
        PlaceOf(bytes_)->begin = nullptr;
        munmap(bytes_, size_);
    }
}

bool Segment::Lost() const {
    return PlaceOf(bytes_)->lost;
}

std::string Segment::LostText() const {
    return path_ + ": another process cut the segment while it was in use, or its disk is full";
}

} // namespace NimaCtl
