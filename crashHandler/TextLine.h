#pragma once

#include <cstddef>

namespace CrashHandling {

/// A line of text in a buffer of `Size` characters, always terminated, and cut when it is full. It is
/// composed by hand: the C library's formatter takes 2 KB of stack, which a thread on its alternate stack may
/// not have.
template <std::size_t Size>
class TextLine {
  public:
    static constexpr std::size_t kRoom = Size - 1;

    TextLine& Add(const char* text) {
        for (; *text != '\0' && length_ < kRoom; ++text) {
            text_[length_++] = *text;
        }
        text_[length_] = '\0';
        return *this;
    }

    TextLine& Add(const char* text, std::size_t length) {
        for (std::size_t i = 0; i < length && length_ < kRoom; ++i) {
            text_[length_++] = text[i];
        }
        text_[length_] = '\0';
        return *this;
    }

    TextLine& AddDecimal(long long value) {
        return value < 0 ? Add("-").AddDigits(0 - static_cast<unsigned long long>(value), 10, 1)
                         : AddDigits(static_cast<unsigned long long>(value), 10, 1);
    }

    /// Lower-case hexadecimal, with leading zeros up to `digits`.
    TextLine& AddHex(unsigned long long value, unsigned digits = 1) { return AddDigits(value, 16, digits); }

    /// Puts a line feed in the last place of a line that was cut.
    void KeepLineFeed() {
        if (length_ == kRoom) {
            text_[kRoom - 1] = '\n';
        }
    }

    const char* text() const { return text_; }
    std::size_t length() const { return length_; }

  private:
    TextLine& AddDigits(unsigned long long value, unsigned base, unsigned digits) {
        char reversed[20];
        unsigned count = 0;
        while (value != 0 || count < digits) {
            reversed[count++] = "0123456789abcdef"[value % base];
            value /= base;
        }
        while (count != 0) {
            const char digit[] = {reversed[--count], '\0'};
            Add(digit);
        }
        return *this;
    }

    char text_[Size] = {};
    std::size_t length_ = 0;
};

} // namespace CrashHandling
