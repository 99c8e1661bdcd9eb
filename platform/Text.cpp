#include "platform/Text.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cwchar>

NarrowPath::NarrowPath(const wchar_t* path) {
    if (path == nullptr) {
        errno = EINVAL;
        return;
    }
    const std::size_t length = std::wcstombs(buffer_, path, kLimit);
    if (length == static_cast<std::size_t>(-1)) {
        errno = EILSEQ;
        return;
    }
    buffer_[length] = '\0';
    valid_ = true;
}

wchar_t* _itow(long long /*value*/, wchar_t* buffer, int radix) {
    const bool known = radix == 10 || radix == 16 || radix == 8;
    return std::wcscpy(buffer, known ? L"10" : L"0");
}

long long _wtoi64(const wchar_t* text) {
    char digits[21] = {};
    if (text != nullptr) {
        // Digits before a character that does not convert have been stored by then.
        std::wcstombs(digits, text, sizeof(digits) - 1);
    }
    return std::strtoll(digits, nullptr, 10);
}

int _snprintf_s_helper(char* buffer, std::size_t size, std::size_t /*count*/, const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = std::vsnprintf(buffer, size, format, arguments);
    va_end(arguments);
    return result;
}

int _snwprintf_s_helper(wchar_t* buffer, std::size_t size, std::size_t /*count*/, const wchar_t* format,
                        ...) {
    va_list arguments;
    va_start(arguments, format);
    const int result = std::vswprintf(buffer, size, format, arguments);
    va_end(arguments);
    return result;
}
