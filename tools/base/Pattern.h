#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace NimaPost {

/// A Perl-compatible regular expression. Text from a device need not be UTF-8. Every search has a limit, so
/// that none goes on for ever; where it is reached, nothing is found.
class Pattern {
  public:
    /// Empty, with the reason, for what is no expression.
    static std::optional<Pattern> Compile(const std::string& expression, bool ignoreCase,
                                          std::string& problem);
    /// One that finds this text and nothing else.
    static Pattern Literal(const std::string& text, bool ignoreCase);

    bool IsIn(std::string_view text) const;
    /// How many searches reached the limit.
    std::uint64_t GivenUp() const;

  private:
    struct Code;
    explicit Pattern(std::shared_ptr<Code> code, std::string literal = {})
        : code_(std::move(code)), literal_(std::move(literal)) {}
    static std::shared_ptr<Code> MakeCode(const std::string& expression, std::uint32_t options,
                                          std::string& problem);

    std::shared_ptr<Code> code_; ///< null where the text as it stands is looked for
    std::string literal_;
};

} // namespace NimaPost
