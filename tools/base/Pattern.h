#pragma once

#include "tools/base/ByteSearch.h"

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
    /// What the first group in parentheses takes, or where there is none the whole expression; empty where
    /// that is nothing.
    std::optional<std::string> Captured(std::string_view text) const;
    /// Whether it may be in one of several lines, each by itself. Cheap enough to be asked of whole files.
    bool MayBeIn(std::string_view lines) const;
    /// No search for it can reach the limit.
    bool IsPlain() const { return !code_; }
    /// How many searches reached the limit.
    std::uint64_t GivenUp() const;

  private:
    struct Code;
    explicit Pattern(std::shared_ptr<Code> code, const std::optional<std::string>& ofLines,
                     std::uint32_t options);
    explicit Pattern(std::string text) : text_(std::move(text)), plain_(text_) {}
    int Find(std::string_view text) const;
    static std::shared_ptr<Code> MakeCode(const std::string& expression, std::uint32_t options,
                                          std::string& problem);

    std::shared_ptr<Code> code_;    ///< null where the text as it stands is looked for
    std::shared_ptr<Code> ofLines_; ///< for several lines at once; null where there is none
    std::string text_;              ///< the text as it stands
    ByteSearch plain_;
};

} // namespace NimaPost
