#include "tools/symbols/FrameLine.h"

#include "catalogue/Marks.h"
#include "tools/base/Text.h"

namespace NimaPost {

namespace {

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
