#include "tools/symbols/FrameLine.h"

#include "catalogue/Marks.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <array>

namespace NimaPost {

namespace {

constexpr std::array<std::string_view, 9> kSignalReturns{"__restore_rt",
                                                         "__restore",
                                                         "__default_rt_sa_restorer",
                                                         "__default_sa_restorer",
                                                         "__kernel_rt_sigreturn",
                                                         "__kernel_sigreturn",
                                                         "__sigaction",
                                                         "sigaction",
                                                         "__libc_sigaction"};

/// Splits "name+0x1f)". False where the end of the line is missing.
bool SplitName(std::string_view text, FrameLine& frame) {
    constexpr std::string_view kOffset = "+0x";
    const std::size_t at = text.rfind(kOffset);
    std::uint64_t offset = 0;
    if (at == std::string_view::npos) {
        return false;
    }
    std::string_view digits = text.substr(at + kOffset.size());
    if (!TakeHex(digits, offset) || digits != ")") {
        return false;
    }
    frame.function = text.substr(0, at);
    frame.offset = offset;
    return true;
}

} // namespace

bool IsNamed(std::string_view function, std::string_view name) {
    return TakeLiteral(function, name) && (function.empty() || function.front() == '(');
}

bool ReturnsFromSignal(std::string_view function) {
    return std::find(kSignalReturns.begin(), kSignalReturns.end(), function) != kSignalReturns.end();
}

bool FrameLine::IsIn(std::string_view name) const {
    return IsNamed(function, name);
}

std::optional<FrameLine> ParseFrameLine(std::string_view line) {
    FrameLine frame;
    if (!TakeLiteral(line, "0x") || !TakeHex(line, frame.address) || !TakeLiteral(line, ":")) {
        return std::nullopt;
    }
    if (TakeLiteral(line, Nima::Catalogue::kFrameFunction) && !SplitName(line, frame)) {
        frame.function = line;
    }
    return frame;
}

} // namespace NimaPost
