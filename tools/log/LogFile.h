#pragma once

#include "tools/base/InputFile.h"
#include "tools/log/LogLine.h"

namespace NimaPost {

/// A file of a text log and how its lines are told apart.
struct LogFile {
    InputFile file;
    LogKind kind;
};

} // namespace NimaPost
