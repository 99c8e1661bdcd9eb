#include "tools/base/ByteSearch.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace NimaPost {

namespace {

/// What logs are full of, the most usual first.
constexpr std::string_view kUsual = " 0e12<>3atoi456798nrsxlcdm:ufpgEIOhNbRF,yW.Av=DAGUBkPTwS";

std::size_t RarityOf(char c) {
    return std::min(kUsual.find(c), kUsual.size());
}

} // namespace

ByteSearch::ByteSearch(std::string text) : text_(std::move(text)) {
    alsoRare_ = text_.empty() ? 0 : text_.size() - 1;
    for (std::size_t i = 0; i < text_.size(); ++i) {
        if (RarityOf(text_[i]) > RarityOf(text_[rare_])) {
            alsoRare_ = rare_;
            rare_ = i;
        } else if (i != rare_ && RarityOf(text_[i]) > RarityOf(text_[alsoRare_])) {
            alsoRare_ = i;
        }
    }
}

bool ByteSearch::IsIn(std::string_view bytes) const {
    if (bytes.size() < text_.size()) {
        return false;
    }
#if defined(__SSE2__)
    constexpr std::size_t kAtOnce = sizeof(__m128i);
    const auto load = [&](std::size_t at) {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes.data() + at));
    };
    const __m128i rare = _mm_set1_epi8(text_.empty() ? '\0' : text_[rare_]);
    const __m128i alsoRare = _mm_set1_epi8(text_.empty() ? '\0' : text_[alsoRare_]);
    std::size_t at = 0;
    for (; text_.size() > 1 && at + kAtOnce <= bytes.size() - text_.size() + 1; at += kAtOnce) {
        const __m128i both = _mm_and_si128(_mm_cmpeq_epi8(load(at + rare_), rare),
                                           _mm_cmpeq_epi8(load(at + alsoRare_), alsoRare));
        for (auto found = static_cast<unsigned>(_mm_movemask_epi8(both)); found != 0; found &= found - 1) {
            const char* const begin = bytes.data() + at + static_cast<std::size_t>(std::countr_zero(found));
            if (std::memcmp(begin, text_.data(), text_.size()) == 0) {
                return true;
            }
        }
    }
    bytes.remove_prefix(at);
#endif
    return bytes.find(text_) != std::string_view::npos;
}

} // namespace NimaPost
