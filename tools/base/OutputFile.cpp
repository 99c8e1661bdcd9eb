#include "tools/base/OutputFile.h"

#include "tools/base/Descriptor.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NimaPost {

namespace {

/// The file that a path leads to. An existing file keeps its identity, and a link to it stays a link.
std::string Resolved(const std::string& path) {
    const std::unique_ptr<char, decltype(&std::free)> real(realpath(path.c_str(), nullptr), std::free);
    return real ? real.get() : path;
}

/// A new file beside the one that it will become.
std::FILE* OpenTemporary(std::string& path) {
    Descriptor descriptor(mkostemp(path.data(), O_CLOEXEC));
    if (!descriptor) {
        return nullptr;
    }
    const mode_t mask = umask(0);
    umask(mask);
    fchmod(descriptor.Number(), 0666 & ~mask);
    std::FILE* const stream = fdopen(descriptor.Number(), "w");
    if (stream != nullptr) {
        descriptor.Release();
    }
    return stream;
}

} // namespace

bool IsStandardOutput(const std::string& path) {
    struct stat named {};
    struct stat standard {};
    return stat(path.c_str(), &named) == 0 && fstat(STDOUT_FILENO, &standard) == 0 &&
           IdentityOf(named) == IdentityOf(standard);
}

OutputFile::~OutputFile() {
    out_.reset();
    filter_.reset();
    if (stream_ != nullptr) {
        std::fclose(stream_);
        if (!temporary_.empty()) {
            unlink(temporary_.c_str());
        }
    }
}

bool OutputFile::Create(const std::string& path, std::span<const FileIdentity> inputs, std::string& problem,
                        MakeFilter makeFilter) {
    struct stat status {};
    const bool there = stat(path.c_str(), &status) == 0;
    if (there && std::find(inputs.begin(), inputs.end(), IdentityOf(status)) != inputs.end()) {
        problem = path + ": is one of the input files; choose another name for the output";
        return false;
    }
    path_ = Resolved(path);
    // Anything but a regular file, such as a terminal, is written to directly, and so is what a shell
    // redirects.
    if (IsStandardOutput(path)) {
        stream_ = fdopen(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0), "w");
    } else if (there && !S_ISREG(status.st_mode)) {
        stream_ = std::fopen(path.c_str(), "we");
    } else {
        temporary_ = path_ + ".XXXXXX";
        stream_ = OpenTemporary(temporary_);
    }
    filter_ = stream_ != nullptr && makeFilter != nullptr ? makeFilter(stream_) : nullptr;
    if (stream_ == nullptr || (makeFilter != nullptr && !filter_)) {
        problem = path + ": " + std::strerror(errno);
        return false;
    }
    out_ = std::make_unique<Output>(filter_ ? filter_->Stream() : stream_);
    return true;
}

bool OutputFile::Finish(std::string& problem) {
    bool fine = out_->Flush();
    out_.reset();
    const int filterError = filter_ ? filter_->Finish() : 0;
    filter_.reset();
    fine = std::fclose(stream_) == 0 && fine;
    stream_ = nullptr;
    if (filterError != 0) {
        errno = filterError;
        fine = false;
    }
    if (fine && !temporary_.empty()) {
        fine = std::rename(temporary_.c_str(), path_.c_str()) == 0;
    }
    if (!fine) {
        problem = path_ + ": " + (errno != 0 ? std::strerror(errno) : "cannot be written");
        if (!temporary_.empty()) {
            unlink(temporary_.c_str());
        }
    }
    return fine;
}

} // namespace NimaPost
