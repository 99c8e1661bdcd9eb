#pragma once

#include "tools/base/Findings.h"
#include "tools/crash/HostReport.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// A stack-trace file, doc/stack-trace.md.
struct StackTrace {
    std::optional<HostReport> host;  ///< what the host said, if it ended itself
    std::vector<std::string> report; ///< the lines before the frames
    std::vector<std::string> frames;

    /// The host's message and its place, or how the process came to its end.
    std::string Title() const;
    /// Whether `abort` led to the handler.
    bool ThroughAbort() const;
    /// Whether the handler was entered from within itself, by the abort with which it ends a process.
    bool EnteredAgain() const;

  private:
    /// Whether a frame is in this function.
    bool Holds(std::string_view function) const;
};

bool LooksLikeStackTrace(std::string_view front);
StackTrace ReadStackTrace(std::string_view text, Findings& findings);

} // namespace NimaPost
