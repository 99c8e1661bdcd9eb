#include "tools/base/Pattern.h"

#include "tools/base/LineExpression.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <algorithm>
#include <array>
#include <chrono>

#include <pcre2.h>

namespace NimaPost {

namespace {

/// Steps of one search: a millisecond or so.
constexpr std::uint32_t kMostSteps = 100'000;
/// After so many searches that reached the limit, the rest get a hundredth of it.
constexpr std::uint64_t kMostPatience = 100;
constexpr std::uint32_t kFewSteps = kMostSteps / 100;
constexpr std::uint32_t kUtf = PCRE2_UTF | PCRE2_MATCH_INVALID_UTF;
constexpr std::uint32_t kMostHeapKilobytes = 20'000;
constexpr std::size_t kStackBytes = std::size_t{1} << 20;
/// What is found as a whole, and its first group.
constexpr std::uint32_t kCaptured = 2;

/// Of a search of many lines at once: where it costs more than looking at them one by one would, that is
/// done.
constexpr std::uint32_t kFewStepsOfLines = kMostSteps / 100;
constexpr std::chrono::nanoseconds kMostForAByte(4);
constexpr std::int64_t kFirstBytes = 1 << 20;

/// Whether an expression finds itself and nothing else.
bool IsPlainText(std::string_view expression) {
    return std::all_of(expression.begin(), expression.end(), [](char c) {
        return c >= ' ' && c <= '~' && std::string_view("\\^$.[|()?*+{").find(c) == std::string_view::npos;
    });
}

template <auto kFree>
struct Freed {
    template <class Thing>
    void operator()(Thing* thing) const {
        kFree(thing);
    }
};

template <class Thing, auto kFree>
using Owned = std::unique_ptr<Thing, Freed<kFree>>;

} // namespace

struct Pattern::Code {
    Owned<pcre2_code, pcre2_code_free> code;
    Owned<pcre2_match_data, pcre2_match_data_free> match;
    Owned<pcre2_match_context, pcre2_match_context_free> context{pcre2_match_context_create(nullptr)};
    /// The machine's own stack is too small for what the compiled code may need.
    Owned<pcre2_jit_stack, pcre2_jit_stack_free> stack;
    bool compiled = false; ///< to the machine's own code
    std::uint64_t givenUp = 0;
    /// What searches of many lines took.
    std::chrono::steady_clock::duration spent{};
    std::int64_t searched = 0; ///< bytes

    int Match(std::string_view text) const {
        // An empty view may have no address, which the library refuses.
        const char* const begin = text.empty() ? "" : text.data();
        return pcre2_match(code.get(), reinterpret_cast<PCRE2_SPTR>(begin), text.size(), 0, 0, match.get(),
                           context.get());
    }
};

Pattern::Pattern(std::shared_ptr<Code> code, const std::optional<std::string>& ofLines, std::uint32_t options)
    : code_(std::move(code)) {
    std::string problem;
    ofLines_ = ofLines && code_->compiled ? MakeCode(*ofLines, options, problem) : nullptr;
    if (ofLines_) {
        pcre2_set_match_limit(ofLines_->context.get(), kFewStepsOfLines);
    }
}

std::optional<Pattern> Pattern::Compile(const std::string& expression, bool ignoreCase,
                                        std::string& problem) {
    if (!ignoreCase && IsPlainText(expression)) {
        return Pattern(expression);
    }
    const std::uint32_t options = kUtf | PCRE2_NEVER_BACKSLASH_C | (ignoreCase ? PCRE2_CASELESS : 0);
    auto code = MakeCode(expression, options, problem);
    return code ? std::optional(Pattern(std::move(code), ForManyLines(expression), options)) : std::nullopt;
}

Pattern Pattern::Literal(const std::string& text, bool ignoreCase) {
    std::string problem;
    if (!ignoreCase) {
        return Pattern(text);
    }
    std::uint32_t options = kUtf | PCRE2_LITERAL | PCRE2_CASELESS;
    auto code = MakeCode(text, options, problem);
    if (!code) {
        // What is not UTF-8 itself is looked for by its bytes.
        options = PCRE2_LITERAL | PCRE2_CASELESS;
        code = MakeCode(text, options, problem);
    }
    return Pattern(std::move(code), text, options);
}

std::shared_ptr<Pattern::Code> Pattern::MakeCode(const std::string& expression, std::uint32_t options,
                                                 std::string& problem) {
    int error = 0;
    PCRE2_SIZE offset = 0;
    auto made = std::make_shared<Code>();
    made->code.reset(pcre2_compile(reinterpret_cast<PCRE2_SPTR>(expression.data()), expression.size(),
                                   options, &error, &offset, nullptr));
    if (!made->code) {
        std::array<PCRE2_UCHAR, 256> text{};
        pcre2_get_error_message(error, text.data(), text.size());
        problem = "\"" + expression +
                  "\" is no regular expression: " + reinterpret_cast<const char*>(text.data()) +
                  ", at character " + std::to_string(offset + 1);
        return nullptr;
    }
    // Where no code can be made, the interpreter does the same, if slower.
    made->compiled = pcre2_jit_compile(made->code.get(), PCRE2_JIT_COMPLETE) == 0;
    if (made->compiled) {
        made->stack.reset(pcre2_jit_stack_create(32 * std::size_t{1024}, kStackBytes, nullptr));
        pcre2_jit_stack_assign(made->context.get(), nullptr, made->stack.get());
    }
    pcre2_set_match_limit(made->context.get(), kMostSteps);
    pcre2_set_heap_limit(made->context.get(), kMostHeapKilobytes);
    made->match.reset(pcre2_match_data_create(kCaptured, nullptr));
    return made;
}

bool Pattern::IsIn(std::string_view text) const {
    return code_ ? Find(text) >= 0 : plain_.IsIn(text);
}

int Pattern::Find(std::string_view text) const {
    const int result = code_->Match(text);
    if (result < PCRE2_ERROR_NOMATCH && ++code_->givenUp == kMostPatience) {
        pcre2_set_match_limit(code_->context.get(), kFewSteps);
    }
    return result;
}

std::optional<std::string> Pattern::Captured(std::string_view text) const {
    if (!code_) {
        return plain_.IsIn(text) ? std::optional(text_) : std::nullopt;
    }
    const int result = Find(text);
    if (result < 0) {
        return std::nullopt;
    }
    const PCRE2_SIZE* ends = pcre2_get_ovector_pointer(code_->match.get());
    // 1 stands for no group at all, 0 for more groups than there is room for.
    if (result != 1 && ends[2] != PCRE2_UNSET) {
        ends += 2;
    }
    return ends[1] > ends[0] ? std::optional(std::string(text.substr(ends[0], ends[1] - ends[0])))
                             : std::nullopt;
}

bool Pattern::MayBeIn(std::string_view lines) const {
    if (!code_) {
        return plain_.IsIn(lines);
    }
    if (!ofLines_ ||
        (ofLines_->searched > kFirstBytes && ofLines_->spent > kMostForAByte * ofLines_->searched)) {
        return true;
    }
    const auto begin = std::chrono::steady_clock::now();
    // A line of which the search takes too long may hold it, or count among those that do.
    const bool found = ofLines_->Match(lines) != PCRE2_ERROR_NOMATCH;
    ofLines_->spent += std::chrono::steady_clock::now() - begin;
    ofLines_->searched += static_cast<std::int64_t>(lines.size());
    return found;
}

std::uint64_t Pattern::GivenUp() const {
    return code_ ? code_->givenUp : 0;
}

} // namespace NimaPost
