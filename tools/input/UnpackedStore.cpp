#include "tools/input/UnpackedStore.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace NimaPost {

namespace {

/// What grows larger gets all the room there is, since a copy takes both its old and its new room; pages that
/// stay empty take none.
constexpr std::uint64_t kGrowsAtOnce = 1 << 20;

/// A file in a folder that no name leads to.
Descriptor OpenNameless(const std::string& folder) {
    Descriptor file(open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600));
    if (!file) {
        // Not every file system can do that.
        std::string path = folder + "/nima-post.XXXXXX";
        file = Descriptor(mkostemp(path.data(), O_CLOEXEC));
        if (file) {
            unlink(path.c_str());
        }
    }
    return file;
}

std::shared_ptr<const Descriptor> OpenSpill(std::string& problem) {
    const char* const wished = std::getenv("TMPDIR");
    for (const char* const folder : {wished, "/var/tmp"}) {
        if (folder == nullptr || *folder == '\0') {
            continue;
        }
        Descriptor file = OpenNameless(folder);
        if (file) {
            return std::make_shared<const Descriptor>(std::move(file));
        }
        problem = std::string(folder) + ": " + std::strerror(errno);
    }
    return nullptr;
}

bool WriteAll(int descriptor, std::string_view bytes, std::uint64_t offset) {
    while (!bytes.empty()) {
        const ssize_t written = pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(written));
        offset += static_cast<std::uint64_t>(written);
    }
    return true;
}

} // namespace

bool UnpackedStore::Append(std::string_view bytes, std::string& problem) {
    if (!spilled_ && inMemory_ + size_ + bytes.size() <= kInMemory) {
        if (memory_.size() + bytes.size() > std::max<std::uint64_t>(memory_.capacity(), kGrowsAtOnce)) {
            memory_.reserve(static_cast<std::size_t>(kInMemory - inMemory_));
        }
        memory_ += bytes;
        size_ += bytes.size();
        return true;
    }
    if (!spilled_) {
        if (Spill(memory_, problem)) {
            memory_ = std::string();
            spilled_ = true;
        } else if (size_ + bytes.size() <= kInMemory) {
            // Better a large program than no evidence.
            memory_ += bytes;
            size_ += bytes.size();
            return true;
        } else {
            return false;
        }
    }
    if (!Spill(bytes, problem)) {
        return false;
    }
    size_ += bytes.size();
    return true;
}

/// Writes to the place after what is there of the file so far.
bool UnpackedStore::Spill(std::string_view bytes, std::string& problem) {
    if (file_ == nullptr) {
        file_ = OpenSpill(problem);
    }
    if (file_ == nullptr) {
        return false;
    }
    if (!WriteAll(file_->Number(), bytes, end_ + (spilled_ ? size_ : 0))) {
        problem = std::string("no room for what was unpacked: ") + std::strerror(errno);
        return false;
    }
    return true;
}

UnpackedBytes UnpackedStore::Finish() {
    UnpackedBytes bytes;
    bytes.size = size_;
    if (spilled_) {
        bytes.file = file_;
        bytes.begin = end_;
        end_ += size_;
    } else {
        inMemory_ += size_;
        bytes.memory = std::exchange(memory_, std::string());
        if (bytes.memory.capacity() / 2 > bytes.memory.size()) {
            bytes.memory.shrink_to_fit();
        }
    }
    memory_.clear();
    size_ = 0;
    spilled_ = false;
    return bytes;
}

} // namespace NimaPost
