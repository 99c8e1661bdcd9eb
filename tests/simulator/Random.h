#pragma once

#include <cstdint>
#include <initializer_list>
#include <string_view>

namespace Simulator {

/// The same numbers from the same seed on every machine, which the distributions of the standard library do
/// not promise.
class Random {
  public:
    explicit Random(std::uint64_t seed) : state_(seed) {}
    /// Different sequences for the same seed under different names.
    Random(std::uint64_t seed, std::string_view name) : state_(seed) {
        for (const char c : name) {
            state_ = Next() + static_cast<unsigned char>(c);
        }
    }

    std::uint64_t Next() {
        std::uint64_t mixed = state_ += UINT64_C(0x9E3779B97F4A7C15);
        mixed = (mixed ^ mixed >> 30) * UINT64_C(0xBF58476D1CE4E5B9);
        mixed = (mixed ^ mixed >> 27) * UINT64_C(0x94D049BB133111EB);
        return mixed ^ mixed >> 31;
    }
    std::uint32_t Word() { return static_cast<std::uint32_t>(Next() >> 32); }

    /// From 0 to the limit, which it does not reach.
    std::int64_t Below(std::int64_t limit) {
        return static_cast<std::int64_t>(Next() % static_cast<std::uint64_t>(limit));
    }
    /// From the least to the most, both included.
    std::int64_t Between(std::int64_t least, std::int64_t most) { return least + Below(most - least + 1); }
    int Small(int least, int most) { return static_cast<int>(Between(least, most)); }
    bool OneIn(std::int64_t number) { return Below(number) == 0; }
    std::int64_t OneOf(std::initializer_list<std::int64_t> choices) {
        return choices.begin()[Below(static_cast<std::int64_t>(choices.size()))];
    }

  private:
    std::uint64_t state_;
};

} // namespace Simulator
