#include "tools/crash/StackTrace.h"

#include "catalogue/Marks.h"
#include "tools/base/Text.h"

namespace NimaPost {

namespace {

constexpr std::size_t kMostLines = 10000;

bool IsFrame(std::string_view line) {
    std::uint64_t address = 0;
    return TakeLiteral(line, "0x") && TakeHex(line, address) && !line.empty();
}

} // namespace

bool LooksLikeStackTrace(std::string_view front) {
    using namespace Nima::Catalogue;
    if (front.empty()) {
        return false;
    }
    const std::string_view line = TakeLine(front);
    const auto holds = [&](std::string_view mark) { return line.find(mark) != std::string_view::npos; };
    return (IsFrame(line) && (holds(std::string(":") + kFrameFunction) || holds(kFrameWithoutName))) ||
           holds(kReportMessage);
}

StackTrace ReadStackTrace(std::string_view text, Findings& findings) {
    StackTrace trace;
    if (!text.empty() && !text.ends_with('\n')) {
        findings.Damage("line-cut", "The last line was cut short.");
    }
    while (!text.empty() && trace.frames.size() + trace.report.size() < kMostLines) {
        const std::string_view line = TakeLine(text);
        if (IsFrame(line)) {
            trace.frames.push_back(Printable(line));
        } else if (!line.empty()) {
            trace.report.push_back(Printable(line));
        }
    }
    return trace;
}

} // namespace NimaPost
