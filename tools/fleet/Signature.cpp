#include "tools/fleet/Signature.h"

#include "tools/base/Text.h"
#include "tools/fleet/ForeignModules.h"
#include "tools/fleet/FunctionName.h"
#include "tools/symbols/FrameLine.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>
#include <set>

namespace NimaPost {

namespace {

constexpr std::size_t kMostFrames = 3;
/// The kernel places modules at multiples of it, so that what is below stays the same.
constexpr std::uint64_t kPage = 4096;

/// What one frame adds to a signature.
struct Part {
    std::string text;
    enum Kind : unsigned char { kOwn, kNameless, kForeign, kHandler } kind = kOwn;
};

Part PartOf(const FrameLine& frame) {
    if (frame.function.empty()) {
        return {"?+" + Hex(frame.address % kPage), Part::kNameless};
    }
    FunctionName name(frame.function, frame.offset.has_value());
    const Part::Kind kind = EntersHandler(name.plain) ? Part::kHandler
                            : IsForeign(name)         ? Part::kForeign
                                                      : Part::kOwn;
    return {std::move(name.text), kind};
}

/// The first frames of a kind below the handler, each function once, since recursion tells nothing.
std::vector<std::size_t> Choose(const std::vector<Part>& parts, std::size_t begin, Part::Kind kind) {
    std::vector<std::size_t> chosen;
    std::set<std::string_view> seen;
    for (std::size_t i = begin; i < parts.size() && chosen.size() < kMostFrames; ++i) {
        if (parts[i].kind == kind && seen.insert(parts[i].text).second) {
            chosen.push_back(i);
        }
    }
    return chosen;
}

/// The handler may have been entered twice; what counts is below the first entry, which stands last, and
/// below the frame by which a signal entered it.
std::size_t BelowHandler(const std::vector<Part>& parts) {
    const auto last = std::find_if(parts.rbegin(), parts.rend(),
                                   [](const Part& part) { return part.kind == Part::kHandler; });
    const auto begin = static_cast<std::size_t>(parts.rend() - last);
    return begin + (begin > 0 && begin < parts.size() && ReturnsFromSignal(parts[begin].text) ? 1 : 0);
}

std::string_view FileName(std::string_view path) {
    const std::size_t at = path.find_last_of("/\\");
    return at == std::string_view::npos ? path : path.substr(at + 1);
}

} // namespace

std::string SignatureOfReport(std::string_view code, std::string_view file, std::string_view line) {
    std::string text(code);
    std::string_view digits = code;
    TakeLiteral(digits, "0x");
    std::uint64_t value = 0;
    if (TakeHex(digits, value) && digits.empty() && value <= UINT32_MAX) {
        text = Hex32(static_cast<std::uint32_t>(value));
    }
    text = text.empty() ? "no code" : text;
    if (!file.empty()) {
        text += " at " + Printable(FileName(file)) + (line.empty() ? "" : ":" + std::string(line));
    }
    return text;
}

Signature SignatureOfStack(const std::vector<std::string>& frames, std::string_view title) {
    std::vector<Part> parts;
    Signature signature;
    for (const std::string& line : frames) {
        const auto frame = ParseFrameLine(line);
        parts.push_back(frame ? PartOf(*frame) : Part{line, Part::kNameless});
        const Part& part = parts.back();
        signature.frames.push_back({part.kind == Part::kNameless ? std::string() : part.text,
                                    part.kind == Part::kForeign || part.kind == Part::kHandler, false});
    }
    const std::size_t begin = BelowHandler(parts);
    for (const Part::Kind kind : {Part::kOwn, Part::kNameless, Part::kForeign}) {
        for (const std::size_t i : Choose(parts, begin, kind)) {
            signature.frames[i].chosen = true;
            signature.text += (signature.text.empty() ? "" : " | ") + parts[i].text;
        }
        if (!signature.text.empty()) {
            return signature;
        }
    }
    signature.text = std::string(title) + ", without frames";
    return signature;
}

} // namespace NimaPost
