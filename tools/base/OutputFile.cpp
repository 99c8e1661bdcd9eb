#include "tools/base/OutputFile.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NimaPost {

OutputFile::~OutputFile() {
    out_.reset();
    if (stream_ != nullptr) {
        std::fclose(stream_);
        if (!temporary_.empty()) {
            unlink(temporary_.c_str());
        }
    }
}

bool OutputFile::Create(const std::string& path, std::string& problem) {
    path_ = path;
    struct stat status {};
    // What is no regular file, such as /dev/stdout, is written to as it is.
    const bool special = stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
    if (special) {
        stream_ = std::fopen(path.c_str(), "we");
    } else {
        temporary_ = path + ".XXXXXX";
        const int descriptor = mkostemp(temporary_.data(), O_CLOEXEC);
        if (descriptor >= 0) {
            const mode_t mask = umask(0);
            umask(mask);
            fchmod(descriptor, 0666 & ~mask);
            stream_ = fdopen(descriptor, "w");
        }
    }
    if (stream_ == nullptr) {
        problem = path + ": " + std::strerror(errno);
        return false;
    }
    out_ = std::make_unique<Output>(stream_);
    return true;
}

bool OutputFile::Finish(std::string& problem) {
    bool fine = out_->Flush();
    out_.reset();
    fine = std::fclose(stream_) == 0 && fine;
    stream_ = nullptr;
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
