#pragma once

#include "tools/base/Findings.h"

#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// A stack-trace file, doc/stack-trace.md.
struct StackTrace {
    std::vector<std::string> report; ///< the lines before the frames
    std::vector<std::string> frames;
};

bool LooksLikeStackTrace(std::string_view front);
StackTrace ReadStackTrace(std::string_view text, Findings& findings);

} // namespace NimaPost
