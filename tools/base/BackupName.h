#pragma once

#include <cstdint>
#include <string>

namespace NimaPost {

/// "crash.txt.1" is backup number 1 of "crash.txt", which itself is number 0. A high number is an old one.
struct BackupName {
    std::string base;
    std::uint64_t number = 0;
};

/// Numbers above `most` are part of the name.
BackupName SplitBackupName(const std::string& name, std::uint64_t most);

} // namespace NimaPost
