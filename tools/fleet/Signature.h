#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// A frame of a stack trace as a signature sees it.
struct SignatureFrame {
    std::string function; ///< empty where the handler had no name
    bool foreign = false;
    bool chosen = false; ///< a part of the signature
};

/// What crashes of the same cause have in common, on every device and in every build: doc/fleet.md.
struct Signature {
    std::string text;
    std::vector<SignatureFrame> frames; ///< in the order of the trace
};

/// Of a failure that a component reported. `file` may have folders, which are the build machine's.
std::string SignatureOfReport(std::string_view code, std::string_view file, std::string_view line);
/// Of a signal or an exception, by the lines of a stack trace; `title` stands for a trace without any.
Signature SignatureOfStack(const std::vector<std::string>& frames, std::string_view title);

} // namespace NimaPost
