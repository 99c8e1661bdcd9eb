#include "tools/fleet/export/ExportFolder.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

namespace NimaPost {

namespace {

namespace fs = std::filesystem;

/// Says whose the folder is. Readers of partitions pass over names with such a beginning.
constexpr const char* kMark = "/_nima-export";

std::string MarkOf(TableForm form) {
    return "nima-post export, schema 1, " + std::string(NameOf(form)) + "\n";
}

std::string Content(int descriptor) {
    std::array<char, 64> bytes{};
    const ssize_t size = pread(descriptor, bytes.data(), bytes.size(), 0);
    return {bytes.data(), static_cast<std::size_t>(size > 0 ? size : 0)};
}

} // namespace

bool ExportFolder::Open(const std::string& path, TableForm form, std::string& problem) {
    path_ = path;
    std::error_code error;
    fs::create_directories(path, error);
    const bool isEmpty = !error && fs::is_empty(path, error);
    if (error) {
        problem = path + ": " + error.message();
        return false;
    }
    const std::string name = path + kMark;
    mark_ = Descriptor(open(name.c_str(), O_RDWR | O_CLOEXEC | (isEmpty ? O_CREAT : 0), 0666));
    if (!mark_) {
        problem = errno == ENOENT ? path + ": holds something that is no export; choose another folder"
                                  : name + ": " + std::strerror(errno);
        return false;
    }
    if (flock(mark_.Number(), LOCK_EX | LOCK_NB) != 0) {
        problem = path + ": another export is writing there";
        return false;
    }
    const std::string mark = MarkOf(form);
    const std::string found = Content(mark_.Number());
    // A mark that was cut is of an export that wrote nothing else.
    if (found.size() < mark.size() && mark.starts_with(found)) {
        if (pwrite(mark_.Number(), mark.data(), mark.size(), 0) != static_cast<ssize_t>(mark.size())) {
            problem = name + ": " + std::strerror(errno);
            return false;
        }
    } else if (found != mark) {
        problem = path + ": holds an export of another form; choose another folder";
        return false;
    }
    fs::remove_all(Unfinished(), error);
    fs::create_directory(Unfinished(), error);
    problem = error ? Unfinished() + ": " + error.message() : std::string();
    begun_ = !error;
    return begun_;
}

ExportFolder::~ExportFolder() {
    if (begun_) {
        std::error_code error;
        fs::remove(Unfinished(), error);
    }
}

} // namespace NimaPost
