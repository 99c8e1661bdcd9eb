#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

#include <Diagnostics/Formats.h>

namespace NimaCtl {

/// A 32-bit word of memory that other processes write as well.
using SharedWord = std::atomic_ref<std::uint32_t>;

/// What the program reads after this is not read before it: an index that is read after entries tells which
/// of them may have been overwritten.
inline std::uint32_t Load(std::uint32_t& word) {
    return SharedWord(word).load(std::memory_order_acquire);
}
inline std::uint32_t Load(std::int32_t& word) {
    return Load(reinterpret_cast<std::uint32_t&>(word));
}

/// Replaces a word by what `change` makes of it, whatever others store meanwhile.
template <typename Change>
void Update(std::uint32_t& word, const Change& change) {
    std::uint32_t old = Load(word);
    for (;;) {
        const std::uint32_t wanted = change(old);
        if (wanted == old || SharedWord(word).compare_exchange_weak(old, wanted)) {
            return;
        }
    }
}

/// A filter of the block: four levels of four words.
using Filter = std::array<std::uint32_t, SYSTRACE_FILTER_WORDS>;

inline Filter LoadFilter(std::uint32_t (&words)[SYSTRACE_FILTER_WORDS]) {
    Filter filter{};
    for (std::size_t i = 0; i < filter.size(); ++i) {
        filter[i] = Load(words[i]);
    }
    return filter;
}

} // namespace NimaCtl
