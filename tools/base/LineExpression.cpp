#include "tools/base/LineExpression.h"

#include <cctype>

namespace NimaPost {

namespace {

bool IsControl(char c) {
    return static_cast<unsigned char>(c) < 0x20;
}

bool IsPunctuation(char c) {
    return std::ispunct(static_cast<unsigned char>(c)) != 0;
}

/// Goes through an expression and knows only what can neither match a line's end nor depend on it. Everything
/// else ends it.
class Translator {
  public:
    explicit Translator(std::string_view expression) : rest_(expression) {}

    std::optional<std::string> Translate() {
        while (!rest_.empty()) {
            if (!Step()) {
                return std::nullopt;
            }
        }
        return std::move(made_);
    }

  private:
    enum class Last : unsigned char { kOther, kQuantifier };

    bool Step() {
        switch (rest_.front()) {
            case '^':
            case '$':
                return LeaveOut(1);
            case '\\':
                return Escape();
            case '[':
                return Class();
            case '(':
                return Group();
            case '*':
            case '+':
            case '?':
                return Quantifier(1);
            case '{': {
                const std::size_t length = CountLength();
                return length > 0 ? Quantifier(length) : Keep(1);
            }
            default:
                return !IsControl(rest_.front()) && Keep(1);
        }
    }

    bool Keep(std::size_t length) {
        made_ += rest_.substr(0, length);
        rest_.remove_prefix(length);
        last_ = Last::kOther;
        return true;
    }

    /// What is left out must not leave its quantifier to what is in front of it.
    bool LeaveOut(std::size_t length) {
        rest_.remove_prefix(length);
        return rest_.empty() || (!rest_.starts_with('*') && !rest_.starts_with('+') &&
                                 !rest_.starts_with('?') && !rest_.starts_with('{'));
    }

    bool Escape() {
        const char escaped = rest_.size() > 1 ? rest_[1] : '\0';
        if (escaped == 'b' || escaped == 'B') {
            return LeaveOut(2);
        }
        const bool known = IsPunctuation(escaped) || escaped == 'd' || escaped == 'w' || escaped == 'S';
        return known && Keep(2);
    }

    /// "[a-z_]"; ranges and members are no control characters.
    bool Class() {
        std::size_t at = 1;
        for (; at < rest_.size() && (rest_[at] != ']' || at == 1); ++at) {
            if (IsControl(rest_[at]) || rest_[at] == '[' ||
                (at == 1 && (rest_[1] == '^' || rest_[1] == ']'))) {
                return false;
            }
            if (rest_[at] == '\\') {
                const char escaped = at + 1 < rest_.size() ? rest_[at + 1] : '\0';
                if (!IsPunctuation(escaped) && escaped != 'd' && escaped != 'w') {
                    return false;
                }
                ++at;
            }
        }
        return at < rest_.size() && Keep(at + 1);
    }

    bool Group() {
        if (rest_.starts_with("(?:")) {
            return Keep(3);
        }
        return !rest_.starts_with("(?") && !rest_.starts_with("(*") && Keep(1);
    }

    /// Of "{3}" or "{3,5}"; 0 for what is no such thing.
    std::size_t CountLength() const {
        const std::size_t end = rest_.find_first_not_of("0123456789,", 1);
        return end != std::string_view::npos && end > 1 && rest_[end] == '}' ? end + 1 : 0;
    }

    /// With what makes it take as little as it can. One that gives nothing back depends on what follows.
    bool Quantifier(std::size_t length) {
        if (last_ == Last::kQuantifier) {
            return false;
        }
        length += rest_.substr(length).starts_with('?') ? 1 : 0;
        Keep(length);
        last_ = Last::kQuantifier;
        return true;
    }

    std::string_view rest_;
    std::string made_;
    Last last_ = Last::kOther;
};

} // namespace

std::optional<std::string> ForManyLines(std::string_view expression) {
    return Translator(expression).Translate();
}

} // namespace NimaPost
