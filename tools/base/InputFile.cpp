#include "tools/base/InputFile.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NimaPost {

namespace {

/// In seconds; what a file system makes up beyond it is no time of a device.
constexpr std::int64_t kLastModified = 8'000'000'000;
constexpr std::int64_t kNanoseconds = 1'000'000'000;

} // namespace

std::optional<std::int64_t> ModificationTime(std::int64_t seconds, std::int64_t nanoseconds) {
    return seconds >= 0 && seconds < kLastModified ? std::optional(seconds * kNanoseconds + nanoseconds)
                                                   : std::nullopt;
}

std::optional<InputFile> InputFile::Open(const std::string& path, std::string& problem) {
    // Without O_NONBLOCK the program would wait here on a pipe without a writer.
    Descriptor descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat status {};
    if (!descriptor || fstat(descriptor.Number(), &status) != 0) {
        problem = path + ": " + std::strerror(errno);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        problem = path + ": not a regular file";
        return std::nullopt;
    }
    InputFile file(path, {{}, std::make_shared<const Descriptor>(std::move(descriptor))});
    file.size_ = static_cast<std::uint64_t>(status.st_size);
    file.identity_ = IdentityOf(status);
    file.modified_ = ModificationTime(status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
    return file;
}

InputFile InputFile::Of(std::string path, UnpackedBytes bytes) {
    // Several threads may unpack.
    static std::atomic<ino_t> made{0};
    InputFile file(std::move(path), std::move(bytes));
    file.isPart_ = true;
    file.size_ = file.bytes_.file != nullptr ? file.bytes_.size : file.bytes_.memory.size();
    file.identity_ = {static_cast<dev_t>(-1), ++made};
    return file;
}

bool InputFile::Refresh() {
    struct stat status {};
    if (isPart_) {
        return true;
    }
    if (fstat(bytes_.file->Number(), &status) == 0) {
        size_ = static_cast<std::uint64_t>(status.st_size);
    }
    return stat(path_.c_str(), &status) == 0 && IdentityOf(status) == identity_;
}

std::size_t InputFile::ReadMemory(std::uint64_t offset, std::span<char> bytes) const {
    std::copy_n(bytes_.memory.data() + offset, bytes.size(), bytes.begin());
    return bytes.size();
}

std::size_t InputFile::ReadAt(std::uint64_t offset, std::span<char> bytes) const {
    if (isPart_) {
        const std::uint64_t rest = offset < size_ ? size_ - offset : 0;
        bytes = bytes.first(static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), rest)));
    }
    if (bytes.empty()) {
        return 0;
    }
    if (bytes_.file == nullptr) {
        return ReadMemory(offset, bytes);
    }
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got = pread(bytes_.file->Number(), bytes.data() + done, bytes.size() - done,
                                  static_cast<off_t>(bytes_.begin + offset + done));
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got < 0) {
            readError_ = errno;
        }
        if (got <= 0) {
            becameShorter_ = becameShorter_ || (got == 0 && offset + done < size_);
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

std::string InputFile::ReadError() const {
    return readError_ != 0 ? std::strerror(readError_) : std::string();
}

std::string InputFile::ReadProblem() const {
    return readError_ != 0  ? ReadError()
           : becameShorter_ ? "it became shorter while it was read"
                            : std::string();
}

std::string InputFile::LimitProblem() const {
    return cutLine_ ? "A line of more than " + std::to_string(mostLineBytes_) +
                          " bytes is cut (--max-line allows more)."
                    : std::string();
}

void InputFile::ReportReadProblem(Findings& findings) const {
    const std::string problem = ReadProblem();
    if (!problem.empty() && !findings.Holds("cannot-read")) {
        findings.Damage("cannot-read", "Not all of it could be read: " + problem + ".");
    }
    const std::string limit = LimitProblem();
    if (!limit.empty() && !findings.Holds("archive-limit")) {
        findings.Damage("archive-limit", limit);
    }
}

} // namespace NimaPost
