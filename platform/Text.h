#pragma once

/// Strings and numbers in the Win32 style. Nothing here allocates; nothing is signal-safe.

#include <cstddef>

/// A path as the operating system takes it: the first 255 bytes of the wide path's multibyte form. If the
/// path is null (`errno` EINVAL) or does not convert in the current locale (EILSEQ), `text()` is null. So
/// nothing is ever done under the name that the convertible beginning happens to form.
class NarrowPath {
  public:
    explicit NarrowPath(const wchar_t* path);
    const char* text() const { return valid_ ? buffer_ : nullptr; }

  private:
    static constexpr std::size_t kLimit = 255;
    char buffer_[kLimit + 1];
    bool valid_ = false;
};

/// Writes "10" for radix 10, 16 and 8 and "0" for any other, whatever the value; the names of backup files
/// depend on this. Returns `buffer`, which holds at least three characters.
wchar_t* _itow(long long value, wchar_t* buffer, int radix);

/// The number at the start of the text, after blanks and a sign; 0 if there is none. At most 20 bytes of the
/// text are considered.
long long _wtoi64(const wchar_t* text);

/// `vsnprintf` and `vswprintf` into `size` characters. `count` is ignored and the result is theirs: for a cut
/// text the narrow one returns the whole length, the wide one -1.
int _snprintf_s_helper(char* buffer, std::size_t size, std::size_t count, const char* format, ...)
    __attribute__((format(printf, 4, 5)));
int _snwprintf_s_helper(wchar_t* buffer, std::size_t size, std::size_t count, const wchar_t* format, ...);
