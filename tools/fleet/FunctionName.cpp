#include "tools/fleet/FunctionName.h"

#include "tools/base/Text.h"

#include <array>
#include <optional>

namespace NimaPost {

namespace {

constexpr std::string_view kOperator = "operator";
constexpr std::string_view kAnonymous = "(anonymous namespace)";

/// Operators with a bracket that opens or closes nothing, the longest first.
constexpr std::array<std::string_view, 10> kBracketed{"<=>", "<<=", ">>=", "->*", "<<",
                                                      ">>",  "<=",  ">=",  "->",  "()"};

bool IsNamePart(char c) {
    return c == '_' || (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

/// The name of an operator at this place of a name, "operator<<"; empty if there is none.
std::string_view OperatorAt(std::string_view name, std::size_t at) {
    if (!name.substr(at).starts_with(kOperator) || (at > 0 && IsNamePart(name[at - 1]))) {
        return {};
    }
    const std::string_view rest = name.substr(at + kOperator.size());
    for (const std::string_view sign : kBracketed) {
        if (rest.starts_with(sign)) {
            return name.substr(at, kOperator.size() + sign.size());
        }
    }
    const bool isOne = rest.starts_with('<') || rest.starts_with('>');
    return isOne ? name.substr(at, kOperator.size() + 1) : std::string_view();
}

/// With nothing between the brackets of templates. Empty where brackets do not match.
std::optional<std::string> Shortened(std::string_view name) {
    std::string text;
    int depth = 0;
    for (std::size_t at = 0; at < name.size(); ++at) {
        if (const std::string_view sign = OperatorAt(name, at); !sign.empty()) {
            text += depth == 0 ? sign : std::string_view();
            at += sign.size() - 1;
            continue;
        }
        const char c = name[at];
        const bool isArrow = c == '>' && at > 0 && name[at - 1] == '-';
        if (c == '<') {
            text += depth++ == 0 ? "<" : "";
        } else if (c == '>' && !isArrow) {
            if (--depth < 0) {
                return std::nullopt;
            }
            text += depth == 0 ? ">" : "";
        } else if (depth == 0) {
            text += c;
        }
    }
    return depth == 0 ? std::optional(text) : std::nullopt;
}

/// Where the parameters begin; the size of a name that has none.
std::size_t BeginOfParameters(std::string_view name) {
    std::size_t at = name.rfind(')');
    if (at == std::string_view::npos) {
        return name.size();
    }
    int depth = 0;
    for (;; --at) {
        depth += name[at] == ')' ? 1 : name[at] == '(' ? -1 : 0;
        if (depth == 0 || at == 0) {
            break;
        }
    }
    const bool isName = name.substr(at).starts_with(kAnonymous) ||
                        (at >= kOperator.size() && OperatorAt(name, at - kOperator.size()).ends_with("()"));
    return isName ? name.size() : at;
}

/// What stands before the last blank outside of parentheses is a result's type, which templates have.
std::string_view WithoutResult(std::string_view name) {
    int depth = 0;
    for (std::size_t at = name.size(); at > 0; --at) {
        const char c = name[at - 1];
        depth += c == ')' || c == '>' ? 1 : c == '(' || c == '<' ? -1 : 0;
        const std::string_view before = name.substr(0, at - 1);
        if (c == ' ' && depth == 0 && !before.ends_with(kOperator)) {
            return name.substr(at);
        }
    }
    return name;
}

/// Of a cut line: what stands before its first bracket.
std::string_view HeadOf(std::string_view name) {
    std::size_t at = name.find_first_of("<(");
    while (at != std::string_view::npos && name.substr(at).starts_with(kAnonymous)) {
        at = name.find_first_of("<(", at + kAnonymous.size());
    }
    return name.substr(0, at);
}

std::string_view WithoutThunk(std::string_view name) {
    for (const std::string_view thunk : {"non-virtual thunk to ", "virtual thunk to "}) {
        TakeLiteral(name, thunk);
    }
    return name;
}

/// The compiler's copies of a function, and its parts.
std::string_view WithoutClone(std::string_view name) {
    return name.substr(0, name.find(" [clone"));
}

/// A line may be cut in the offset, too.
std::string_view WithoutCutOffset(std::string_view name) {
    const std::size_t at = name.rfind('+');
    if (at == std::string_view::npos) {
        return name;
    }
    std::string_view offset = name.substr(at + 1);
    std::uint64_t value = 0;
    const bool isOffset = offset.empty() || offset == "0" || offset == "0x" ||
                          (TakeLiteral(offset, "0x") && TakeHex(offset, value) && offset.empty());
    return isOffset ? name.substr(0, at) : name;
}

} // namespace

FunctionName::FunctionName(std::string_view demangled, bool whole) {
    if (!whole) {
        text = WithoutClone(WithoutCutOffset(demangled));
        plain = WithoutResult(HeadOf(WithoutThunk(text)));
        return;
    }
    const std::string_view name = WithoutThunk(WithoutClone(demangled));
    text = Shortened(name).value_or(std::string(name));
    const std::size_t parameters = BeginOfParameters(text);
    const std::string_view front = std::string_view(text).substr(0, parameters);
    const bool isTemplate = front.find("<>") != std::string_view::npos;
    plain = isTemplate ? WithoutResult(front) : front;
    if (isTemplate) {
        // Parameters and result differ with the template's arguments.
        text = plain;
    }
}

} // namespace NimaPost
