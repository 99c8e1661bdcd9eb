#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace NimaPost {

/// Looks for a text in many bytes as fast as they can be read.
class ByteSearch {
  public:
    ByteSearch() = default;
    explicit ByteSearch(std::string text);

    bool IsIn(std::string_view bytes) const;

  private:
    std::string text_;
    /// Where in the text two characters are that are the least usual in logs.
    std::size_t rare_ = 0;
    std::size_t alsoRare_ = 0;
};

} // namespace NimaPost
