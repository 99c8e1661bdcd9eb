#pragma once

#include <algorithm>
#include <charconv>
#include <cstddef>
#include <cstring>

namespace Nima::Common::System::OS::Diagnostics {

/// Composes text without printf, but with printf's results: what fits is stored and zero-terminated, and the
/// length keeps counting beyond the end.
class TextComposer {
  public:
    TextComposer(char* buffer, std::size_t size) : buffer_(buffer), size_(size) {}
    TextComposer(const TextComposer&) = delete;
    TextComposer& operator=(const TextComposer&) = delete;
    /// Terminates the text, if there is any room.
    ~TextComposer() {
        if (size_ > 0) {
            buffer_[std::min(length_, size_ - 1)] = '\0';
        }
    }

    /// Whether all of it is in the buffer, with room for the terminating zero.
    bool fits() const { return length_ < size_; }
    /// The length of the whole text, whether or not it fitted.
    int length() const { return static_cast<int>(length_); }

    void Add(char c) {
        if (fits()) {
            buffer_[length_] = c;
        }
        ++length_;
    }
    void Add(const char* text, std::size_t length) {
        if (fits()) {
            std::memcpy(buffer_ + length_, text, std::min(length, size_ - length_));
        }
        length_ += length;
    }
    void Add(const char* text) { Add(text, std::strlen(text)); }
    /// Of base 10 or 16.
    template <class Number>
    void AddNumber(Number number, int base = 10) {
        constexpr std::size_t kMostDigits = 24;
        if (length_ + kMostDigits <= size_) {
            char* const begin = buffer_ + length_;
            length_ +=
                static_cast<std::size_t>(std::to_chars(begin, begin + kMostDigits, number, base).ptr - begin);
            return;
        }
        char digits[kMostDigits];
        const char* const end = std::to_chars(digits, digits + kMostDigits, number, base).ptr;
        Add(digits, static_cast<std::size_t>(end - digits));
    }
    /// "%0<width>d"
    void AddPadded(int value, int width) {
        const long long magnitude = value < 0 ? -static_cast<long long>(value) : value;
        if (value < 0) {
            Add('-');
            --width;
        }
        char digits[16];
        const char* const end = std::to_chars(digits, digits + sizeof(digits), magnitude).ptr;
        for (auto missing = width - (end - digits); missing > 0; --missing) {
            Add('0');
        }
        Add(digits, static_cast<std::size_t>(end - digits));
    }

  private:
    char* buffer_;
    std::size_t size_;
    std::size_t length_ = 0;
};

} // namespace Nima::Common::System::OS::Diagnostics
