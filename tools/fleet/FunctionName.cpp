#include "tools/fleet/FunctionName.h"

#include "tools/base/Text.h"

#include <array>
#include <vector>

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

bool IsOperator(std::string_view name, std::size_t at) {
    const std::string_view rest = name.substr(at);
    return rest.starts_with(kOperator) && (at == 0 || !IsNamePart(name[at - 1])) &&
           (rest.size() == kOperator.size() || !IsNamePart(rest[kOperator.size()]));
}

/// The name of an operator at this place of a name, "operator<<"; empty if there is none.
std::string_view OperatorAt(std::string_view name, std::size_t at) {
    if (!IsOperator(name, at)) {
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

bool IsArrow(std::string_view name, std::size_t at) {
    return name[at] == '>' && at > 0 && name[at - 1] == '-';
}

/// Leaves out what is between the brackets of templates.
class Shortener {
  public:
    /// False where brackets do not match.
    bool Run(std::string_view name) {
        for (std::size_t at = 0; at < name.size(); ++at) {
            if (const std::string_view sign = OperatorAt(name, at); !sign.empty()) {
                Say(sign);
                at += sign.size() - 1;
                // This blank keeps the sign apart from arguments.
                at += name.substr(at + 1).starts_with(" <") ? 1 : 0;
            } else if (IsArrow(name, at)) {
                Say(name.substr(at, 1));
            } else if (!Take(name.substr(at, 1))) {
                return false;
            }
        }
        return open_.empty();
    }

    const std::string& Text() const { return text_; }
    /// What stands before the first bracket that is still open.
    std::string Head() const { return text_.substr(0, open_.empty() ? text_.size() : open_.front().at); }

  private:
    struct Bracket {
        char sign;
        std::size_t at; ///< in the text
    };

    void Say(std::string_view text) { text_ += templates_ == 0 ? text : std::string_view(); }
    bool IsIn(char sign) const { return !open_.empty() && open_.back().sign == sign; }

    bool Take(std::string_view c) {
        if (c == "<" || c == "(") {
            open_.push_back({c.front(), text_.size()});
            Say(c);
            templates_ += c == "<" ? 1 : 0;
        } else if (c == ")") {
            // Those that are open within parentheses only compare.
            for (; IsIn('<'); open_.pop_back()) {
                --templates_;
            }
            if (open_.empty()) {
                return false;
            }
            open_.pop_back();
            Say(c);
        } else if (c == ">" && IsIn('<')) {
            open_.pop_back();
            --templates_;
            Say(c);
        } else if (c == ">" && open_.empty()) {
            return false;
        } else {
            Say(c);
        }
        return true;
    }

    std::string text_;
    std::vector<Bracket> open_; ///< the innermost last
    int templates_ = 0;
};

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

/// What stands before the last blank outside of brackets is a result's type, which templates have. A blank
/// after "operator" is of the type that it converts to.
std::string_view WithoutResult(std::string_view name) {
    int depth = 0;
    std::size_t begin = 0;
    for (std::size_t at = 0; at < name.size() && (depth > 0 || !IsOperator(name, at)); ++at) {
        const char c = name[at];
        depth += c == '(' || c == '<' || c == '{' ? 1 : 0;
        depth -= c == ')' || c == '}' || (c == '>' && !IsArrow(name, at)) ? 1 : 0;
        begin = c == ' ' && depth == 0 ? at + 1 : begin;
    }
    return name.substr(begin);
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
    const std::string_view name = WithoutClone(whole ? demangled : WithoutCutOffset(demangled));
    Shortener shortener;
    const bool matches = shortener.Run(WithoutThunk(name));
    if (!whole) {
        text = name;
        const std::string head = shortener.Head();
        plain = WithoutResult(std::string_view(head).substr(0, BeginOfParameters(head)));
        return;
    }
    text = matches ? shortener.Text() : std::string(WithoutThunk(name));
    const std::string_view front = std::string_view(text).substr(0, BeginOfParameters(text));
    const bool isTemplate = front.find("<>") != std::string_view::npos;
    plain = isTemplate ? WithoutResult(front) : front;
    if (isTemplate) {
        // Parameters and result differ with the template's arguments.
        text = plain;
    }
}

} // namespace NimaPost
