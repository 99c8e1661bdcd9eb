#include "Diagnostics/MessageFormat.h"

#include <charconv>
#include <cstdio>
#include <cstring>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr int kNotPlain = -1;

/// Receives the text of a message; full once something did not fit.
class Output {
  public:
    Output(char* begin, std::size_t size) : begin_(begin), out_(begin), end_(begin + size - 1) {}

    bool Put(char c) {
        if (out_ == end_) {
            return false;
        }
        *out_++ = c;
        return true;
    }
    bool Put(const char* text) {
        if (text == nullptr) {
            return false; // the C library has a text for it
        }
        const std::size_t length = std::strlen(text);
        if (length > static_cast<std::size_t>(end_ - out_)) {
            return false;
        }
        std::memcpy(out_, text, length);
        out_ += length;
        return true;
    }
    template <class Number>
    bool Put(Number number, int base) {
        const std::to_chars_result result = std::to_chars(out_, end_, number, base);
        out_ = result.ptr;
        return result.ec == std::errc();
    }
    /// Terminates the text and returns its length.
    int End() {
        *out_ = '\0';
        return static_cast<int>(out_ - begin_);
    }

  private:
    char* begin_;
    char* out_;
    char* end_; ///< reserved for the terminating zero
};

bool TakesLongs(char conversion, int longs) {
    return longs <= 2 && (conversion == 'd' || conversion == 'i' || conversion == 'u' || conversion == 'x');
}

/// Composes a message with the conversions %d %i %u %x %s %c and %%, the numbers also with l or ll. Returns
/// `kNotPlain` if the format has anything else, or if there is no room; the buffer's content is then
/// meaningless.
int FormatPlain(char* buffer, std::size_t size, const char* format, va_list arguments) {
    Output out(buffer, size);
    bool fits = true;
    for (; fits && *format != '\0'; ++format) {
        if (*format != '%') {
            fits = out.Put(*format);
            continue;
        }
        int longs = 0;
        while (*++format == 'l') {
            ++longs;
        }
        if (longs > 0 && !TakesLongs(*format, longs)) {
            return kNotPlain;
        }
        switch (*format) {
            case 'd':
            case 'i':
                fits = longs == 0   ? out.Put(va_arg(arguments, int), 10)
                       : longs == 1 ? out.Put(va_arg(arguments, long), 10)
                                    : out.Put(va_arg(arguments, long long), 10);
                break;
            case 'u':
            case 'x': {
                const int base = *format == 'u' ? 10 : 16;
                fits = longs == 0   ? out.Put(va_arg(arguments, unsigned), base)
                       : longs == 1 ? out.Put(va_arg(arguments, unsigned long), base)
                                    : out.Put(va_arg(arguments, unsigned long long), base);
                break;
            }
            case 's':
                fits = out.Put(va_arg(arguments, const char*));
                break;
            case 'c':
                fits = out.Put(static_cast<char>(va_arg(arguments, int)));
                break;
            case '%':
                fits = out.Put('%');
                break;
            default:
                return kNotPlain;
        }
    }
    return fits ? out.End() : kNotPlain;
}

} // namespace

int FormatMessage(char* buffer, std::size_t size, const char* format, va_list arguments) {
    va_list again;
    va_copy(again, arguments);
    const int length = FormatPlain(buffer, size, format, again);
    va_end(again);
    return length != kNotPlain ? length : std::vsnprintf(buffer, size, format, arguments);
}

} // namespace Nima::Common::System::OS::Diagnostics
