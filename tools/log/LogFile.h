#pragma once

#include "tools/base/InputFile.h"
#include "tools/log/LogLine.h"
#include "tools/log/Quotes.h"

#include <vector>

namespace NimaPost {

/// A file of a text log and how its lines are told apart.
struct LogFile {
    InputFile file;
    LogKind kind;
    std::vector<Quote> quotes; ///< of calibration lines, in the order of the file
};

} // namespace NimaPost
