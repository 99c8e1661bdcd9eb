#pragma once

#include "tools/story/Crashes.h"

#include <string>

namespace NimaPost {

/// What a crash log and the stack trace of the same failure say of it. What they do not say is empty.
struct CrashCause {
    explicit CrashCause(const Crash& crash);

    /// On one line, the most telling first.
    std::string InWords() const;

    std::string message;
    std::string file;
    std::string line;
    std::string code;
    std::string exception;
    std::string frame;
};

} // namespace NimaPost
