#pragma once

#include <sys/stat.h>
#include <sys/types.h>

namespace NimaPost {

/// Identifies a file, whatever path leads to it.
struct FileIdentity {
    dev_t device = 0;
    ino_t inode = 0;

    bool operator==(const FileIdentity&) const = default;
};

inline FileIdentity IdentityOf(const struct stat& status) {
    return {status.st_dev, status.st_ino};
}

} // namespace NimaPost
