#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>

namespace NimaPost {

/// Numbers for texts that stand in a file again and again, from 1. Only so many are kept that memory stays
/// bounded: what comes often comes early.
class InternedTexts {
  public:
    struct Entry {
        std::uint64_t number = 0; ///< 0 for a text that has none
        bool isNew = false;
    };
    Entry NumberOf(std::string_view text);

  private:
    struct Hash {
        using is_transparent = void;
        std::size_t operator()(std::string_view text) const { return std::hash<std::string_view>()(text); }
    };
    std::unordered_map<std::string, std::uint64_t, Hash, std::equal_to<>> numbers_;
};

} // namespace NimaPost
