#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

namespace NimaPost {

/// Tells contents apart: 128 bits, the same on every machine. It withstands chance, not somebody who builds a
/// second content on purpose.
class ContentHash {
  public:
    /// However the bytes are divided among calls, their order alone counts.
    void Add(std::string_view bytes);
    /// A text, or what ends a sequence of calls: "ab", "c" is not "a", "bc".
    void AddWhole(std::string_view text);

    /// 32 digits.
    std::string Hexadecimal() const;

  private:
    void AddWord(std::uint64_t word);

    std::array<std::uint64_t, 2> lanes_{0x243F6A8885A308D3, 0x13198A2E03707344};
    std::array<char, sizeof(std::uint64_t)> rest_{};
    std::size_t inRest_ = 0;
    std::uint64_t size_ = 0;
};

} // namespace NimaPost
