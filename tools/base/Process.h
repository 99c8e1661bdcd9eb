#pragma once

#include <cstdint>
#include <string>

namespace NimaPost {

struct ProcessState {
    bool lives = false;
    std::string name; ///< as the kernel has it; empty where it does not live
};

/// Whether a process of that identifier lives. An identifier may have been given away anew.
ProcessState StateOfProcess(std::uint32_t id);

} // namespace NimaPost
