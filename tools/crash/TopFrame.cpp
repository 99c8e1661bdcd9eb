#include "tools/crash/TopFrame.h"

#include "catalogue/Marks.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <array>
#include <string_view>

namespace NimaPost {

namespace {

/// Functions of the handler, of the C library's way to an abort, and of an exception that nobody catches.
/// What the signal's return is in has no name of its own and appears under the one in front of it.
constexpr std::array<std::string_view, 18> kWayOut{"signalHandler",
                                                   "terminateHandler",
                                                   "HandleFatalCrash",
                                                   "__sigaction",
                                                   "sigaction",
                                                   "__restore_rt",
                                                   "abort",
                                                   "raise",
                                                   "gsignal",
                                                   "pthread_kill",
                                                   "pthread_key_delete",
                                                   "__pthread_kill",
                                                   "std::terminate",
                                                   "__cxa_throw",
                                                   "__cxa_rethrow",
                                                   "__cxa_pure_virtual",
                                                   "__default_rt_sa_restorer",
                                                   "__assert_fail"};

std::string_view NameOf(std::string_view frame) {
    const std::size_t name = frame.find(Nima::Catalogue::kFrameFunction);
    if (name == std::string_view::npos) {
        return {};
    }
    frame.remove_prefix(name + std::string_view(Nima::Catalogue::kFrameFunction).size());
    frame.remove_suffix(frame.ends_with(')') ? 1 : 0);
    return frame;
}

bool IsWayOut(std::string_view name) {
    return std::any_of(kWayOut.begin(), kWayOut.end(), [&](std::string_view function) {
        std::string_view rest = name;
        return TakeLiteral(rest, function) && (rest.empty() || rest.front() == '+' || rest.front() == '(');
    });
}

} // namespace

std::string TopFrame(const StackTrace& stack) {
    for (const std::string& frame : stack.frames) {
        const std::string_view name = NameOf(frame);
        if (!IsWayOut(name)) {
            return name.empty() ? frame : std::string(name);
        }
    }
    return {};
}

} // namespace NimaPost
