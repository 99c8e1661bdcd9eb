#include "tools/base/InputFile.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NimaPost {

std::optional<InputFile> InputFile::Open(const std::string& path, std::string& problem) {
    // Without O_NONBLOCK the program would wait here on a pipe without a writer.
    InputFile file(path, Descriptor(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)));
    struct stat status {};
    if (!file.descriptor_ || fstat(file.descriptor_.Number(), &status) != 0) {
        problem = path + ": " + std::strerror(errno);
        return std::nullopt;
    }
    if (!S_ISREG(status.st_mode)) {
        problem = path + ": not a regular file";
        return std::nullopt;
    }
    file.size_ = static_cast<std::uint64_t>(status.st_size);
    file.identity_ = IdentityOf(status);
    return file;
}

bool InputFile::Refresh() {
    struct stat status {};
    if (fstat(descriptor_.Number(), &status) == 0) {
        size_ = static_cast<std::uint64_t>(status.st_size);
    }
    return stat(path_.c_str(), &status) == 0 && IdentityOf(status) == identity_;
}

std::size_t InputFile::ReadAt(std::uint64_t offset, std::span<char> bytes) const {
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got = pread(descriptor_.Number(), bytes.data() + done, bytes.size() - done,
                                  static_cast<off_t>(offset + done));
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

void InputFile::ReportReadProblem(Findings& findings) const {
    const std::string problem = ReadProblem();
    if (!problem.empty() && !findings.Holds("cannot-read")) {
        findings.Damage("cannot-read", "Not all of it could be read: " + problem + ".");
    }
}

} // namespace NimaPost
