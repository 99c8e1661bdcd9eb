#pragma once

#include <array>
#include <cstddef>

namespace Nima::Catalogue {

/// A plain ASCII text in both widths: the library names files in wide characters, readers in narrow ones.
template <std::size_t kSize>
struct TwoWidths {
    char narrow[kSize]{};
    wchar_t wide[kSize]{};

    consteval explicit TwoWidths(const char (&text)[kSize]) {
        for (std::size_t i = 0; i < kSize; ++i) {
            narrow[i] = text[i];
            wide[i] = static_cast<wchar_t>(text[i]);
        }
    }
};

/// Joins texts of this catalogue with the characters around them in the output.
template <std::size_t... kSizes>
consteval auto Concatenated(const char (&... parts)[kSizes]) {
    std::array<char, (kSizes + ...) - sizeof...(kSizes) + 1> whole{};
    std::size_t length = 0;
    const auto append = [&](const char* text) {
        for (; *text != '\0'; ++text) {
            whole[length++] = *text;
        }
    };
    (append(parts), ...);
    return whole;
}

} // namespace Nima::Catalogue
