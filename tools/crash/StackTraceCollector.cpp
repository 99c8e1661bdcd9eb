#include "tools/crash/StackTraceCollector.h"

#include "tools/crash/Notification.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NimaPost {

namespace {

/// A hundred frames take 10 KB.
constexpr std::uint64_t kMostBytes = 16 << 20;
constexpr int kMostCopies = 1000;

/// Added to a copy's name while it is being written.
constexpr const char* kUnfinished = ".part";

/// Tries the name, then the name with a number, for as long as `attempt` fails because the name is taken.
template <class Attempt>
bool TryNames(std::string& name, const Attempt& attempt) {
    const std::string first = name;
    for (int number = 1; number <= kMostCopies; ++number) {
        if (attempt(name.c_str())) {
            return true;
        }
        if (errno != EEXIST) {
            return false;
        }
        name = first + "." + std::to_string(number);
    }
    errno = EEXIST;
    return false;
}

bool WriteAll(int descriptor, const char* bytes, std::size_t length) {
    while (length > 0) {
        const ssize_t written = write(descriptor, bytes, length);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes += written;
        length -= static_cast<std::size_t>(written);
    }
    return true;
}

/// The file is complete when its process notifies, so the end found here is its end.
void CopyBytes(int from, int to, StackTraceCollector::Copy& copy) {
    std::array<char, 1 << 16> piece{};
    for (;;) {
        const ssize_t got = read(from, piece.data(), piece.size());
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            copy.problem = std::string("reading it: ") + std::strerror(errno);
        }
        if (got <= 0) {
            return;
        }
        const auto wanted = static_cast<std::size_t>(got);
        if (copy.bytes + wanted > kMostBytes) {
            copy.problem = "longer than any stack trace; the rest is left out";
            return;
        }
        if (!WriteAll(to, piece.data(), wanted)) {
            copy.problem = std::string("writing the copy: ") + std::strerror(errno);
            return;
        }
        copy.bytes += wanted;
    }
}

} // namespace

std::optional<StackTraceCollector> StackTraceCollector::Open(const std::string& folder,
                                                             std::string& problem) {
    std::error_code error;
    std::filesystem::create_directories(folder, error);
    Descriptor descriptor(open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!descriptor) {
        problem = folder + ": " + (error ? error.message() : std::strerror(errno));
        return std::nullopt;
    }
    return StackTraceCollector(folder, std::move(descriptor));
}

StackTraceCollector::Copy StackTraceCollector::Take(const std::string& path) const {
    Copy copy;
    const std::string name(LastComponent(path));
    if (!path.starts_with('/') || !ParseStackTraceName(name)) {
        copy.problem = "not the path of a stack-trace file";
        return copy;
    }
    // On a pipe without a writer the program would wait, and a link could lead to a file that nobody meant to
    // give away.
    const Descriptor from(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | O_NOCTTY));
    struct stat status {};
    if (!from || fstat(from.Number(), &status) != 0) {
        copy.problem = std::strerror(errno);
        return copy;
    }
    if (!S_ISREG(status.st_mode)) {
        copy.problem = "not a regular file";
        return copy;
    }
    std::string temporary = name + kUnfinished;
    std::string chosen = name;
    const Descriptor to(Create(temporary));
    if (!to) {
        copy.problem = std::string("making the copy: ") + std::strerror(errno);
        return copy;
    }
    CopyBytes(from.Number(), to.Number(), copy);
    if (!Publish(temporary, chosen)) {
        copy.problem = std::string("naming the copy: ") + std::strerror(errno);
        chosen = temporary;
    }
    copy.path = folder_ + (folder_.ends_with('/') ? "" : "/") + chosen;
    return copy;
}

/// Creates a file of this name, to which a number is added if it is taken.
int StackTraceCollector::Create(std::string& name) const {
    int file = -1;
    TryNames(name, [&](const char* candidate) {
        file = openat(descriptor_.Number(), candidate, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW,
                      0600);
        return file >= 0;
    });
    return file;
}

/// Gives a finished copy its name, to which a number is added if it is taken.
bool StackTraceCollector::Publish(const std::string& temporary, std::string& name) const {
    const int folder = descriptor_.Number();
    return TryNames(name, [&](const char* candidate) {
        if (renameat2(folder, temporary.c_str(), folder, candidate, RENAME_NOREPLACE) == 0) {
            return true;
        }
        // Some systems and file systems cannot rename in this way.
        return (errno == EINVAL || errno == ENOSYS) &&
               linkat(folder, temporary.c_str(), folder, candidate, 0) == 0 &&
               unlinkat(folder, temporary.c_str(), 0) == 0;
    });
}

} // namespace NimaPost
