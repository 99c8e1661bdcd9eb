#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <sys/types.h>

namespace NimaCtl {

/// A program or library that a process has loaded.
struct Module {
    std::string path;
    std::uint64_t address = 0; ///< where its first byte is, or would be
    std::string buildId;       ///< empty if it has none or cannot be read
};

/// In the order of their addresses. Empty if this user may not look at the process.
std::vector<Module> ModulesOf(pid_t process);

} // namespace NimaCtl
