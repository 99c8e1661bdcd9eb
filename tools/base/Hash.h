#pragma once

#include <cstdint>

namespace NimaPost {

/// Mixes a value into a hash.
constexpr std::uint64_t Mix(std::uint64_t hash, std::uint64_t value) {
    hash = (hash ^ value) * 0x9E3779B97F4A7C15U;
    return hash ^ hash >> 32;
}

} // namespace NimaPost
