#include "tools/crash/StackTrace.h"

#include "catalogue/Marks.h"
#include "tools/base/Text.h"
#include "tools/symbols/FrameLine.h"

#include <algorithm>

namespace NimaPost {

namespace {

constexpr std::size_t kMostTraceLines = 10000;

/// The other functions by which the handler is entered.
constexpr std::string_view kAtTerminate = "terminateHandler";
constexpr std::string_view kAtReport = "HandleFatalCrash";
/// The C++ library's, which leads to the second of them.
constexpr std::string_view kTerminate = "std::terminate";

/// Whether a frame is in this function, with or without its parameters.
bool IsIn(std::string_view frame, std::string_view function) {
    const auto parts = ParseFrameLine(frame);
    return parts && parts->IsIn(function);
}

bool IsFrame(std::string_view line) {
    std::uint64_t address = 0;
    return TakeLiteral(line, "0x") && TakeHex(line, address) && !line.empty();
}

} // namespace

std::string StackTrace::Title() const {
    if (host) {
        return host->Headline();
    }
    if (EnteredAgain()) {
        return "Abort by the native crash handler, after the failure of an earlier file";
    }
    const auto begins = [&](std::string_view function) {
        return !frames.empty() && IsIn(frames.front(), function);
    };
    // The functions of a stripped library appear under the name of the report's, which is exported: a report
    // has lines before its frames.
    const bool stripped = begins(kAtReport) && report.empty();
    const auto second = frames.size() > 1 ? ParseFrameLine(frames[1]) : std::nullopt;
    return begins(kAtReport) && !stripped ? "A host's own report whose message was cut off"
           : ThroughAbort()               ? "Abort"
           : begins(kAtTerminate) || (stripped && Holds(kTerminate)) ? "Uncaught exception"
           : begins(kSignalHandler) || (second && ReturnsFromSignal(second->function))
               ? "Fatal signal"
               : "Stack trace of the native crash handler";
}

bool StackTrace::Holds(std::string_view function) const {
    return std::any_of(frames.begin(), frames.end(),
                       [&](const std::string& frame) { return IsIn(frame, function); });
}

bool StackTrace::ThroughAbort() const {
    return Holds("abort");
}

bool StackTrace::EnteredAgain() const {
    // The first frame is that of the handler's function that was entered last.
    return frames.size() > 1 && std::any_of(frames.begin() + 1, frames.end(), [](const std::string& frame) {
               return IsIn(frame, kSignalHandler) || IsIn(frame, kAtTerminate) || IsIn(frame, kAtReport);
           });
}

bool LooksLikeStackTrace(std::string_view front) {
    using namespace Nima::Catalogue;
    if (front.empty()) {
        return false;
    }
    if (LooksLikeHostReport(front)) {
        return true;
    }
    const std::string_view line = TakeLine(front);
    const auto holds = [&](std::string_view mark) { return line.find(mark) != std::string_view::npos; };
    return IsFrame(line) && (holds(std::string(":") + kFrameFunction) || holds(kFrameWithoutName));
}

StackTrace ReadStackTrace(std::string_view text, Findings& findings) {
    StackTrace trace;
    trace.host = ReadHostReport(text);
    if (trace.host && trace.host->cut) {
        findings.Remark("message-cut", "The handler cut the host's message at the end of its line.");
    }
    if (!text.empty() && !text.ends_with('\n')) {
        findings.Damage("line-cut", "The last line was cut short.");
    }
    while (!text.empty() && trace.frames.size() + trace.report.size() < kMostTraceLines) {
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
