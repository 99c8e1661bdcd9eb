#include "tools/base/Pattern.h"

#define PCRE2_CODE_UNIT_WIDTH 8
#include <array>

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
    std::uint64_t givenUp = 0;
};

std::optional<Pattern> Pattern::Compile(const std::string& expression, bool ignoreCase,
                                        std::string& problem) {
    auto code =
        MakeCode(expression, kUtf | PCRE2_NEVER_BACKSLASH_C | (ignoreCase ? PCRE2_CASELESS : 0), problem);
    return code ? std::optional(Pattern(std::move(code))) : std::nullopt;
}

Pattern Pattern::Literal(const std::string& text, bool ignoreCase) {
    std::string problem;
    if (!ignoreCase) {
        return Pattern(nullptr, text);
    }
    auto code = MakeCode(text, kUtf | PCRE2_LITERAL | PCRE2_CASELESS, problem);
    // What is not UTF-8 itself is looked for by its bytes.
    return Pattern(code ? code : MakeCode(text, PCRE2_LITERAL | PCRE2_CASELESS, problem));
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
    if (pcre2_jit_compile(made->code.get(), PCRE2_JIT_COMPLETE) == 0) {
        made->stack.reset(pcre2_jit_stack_create(32 * std::size_t{1024}, kStackBytes, nullptr));
        pcre2_jit_stack_assign(made->context.get(), nullptr, made->stack.get());
    }
    pcre2_set_match_limit(made->context.get(), kMostSteps);
    pcre2_set_heap_limit(made->context.get(), kMostHeapKilobytes);
    made->match.reset(pcre2_match_data_create(1, nullptr));
    return made;
}

bool Pattern::IsIn(std::string_view text) const {
    if (!code_) {
        return text.find(literal_) != std::string_view::npos;
    }
    // An empty view may have no address, which the library refuses.
    const char* const begin = text.empty() ? "" : text.data();
    const int result = pcre2_match(code_->code.get(), reinterpret_cast<PCRE2_SPTR>(begin), text.size(), 0, 0,
                                   code_->match.get(), code_->context.get());
    if (result < PCRE2_ERROR_NOMATCH && ++code_->givenUp == kMostPatience) {
        pcre2_set_match_limit(code_->context.get(), kFewSteps);
    }
    return result >= 0;
}

std::uint64_t Pattern::GivenUp() const {
    return code_ ? code_->givenUp : 0;
}

} // namespace NimaPost
