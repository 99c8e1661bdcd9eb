#pragma once

#include <cstdint>
#include <string>

namespace NimaPost {

struct ProcessState {
    bool lives = false;
    std::string name; ///< as the kernel reports it; empty if it does not live
};

/// Whether a process with that identifier lives. The identifier may have been reused.
ProcessState StateOfProcess(std::uint32_t id);

} // namespace NimaPost
