#include "Diagnostics/MessageFormat.h"

#include "Diagnostics/TextComposer.h"

#include <cstdio>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr int kNotPlain = -1;

bool TakesLongs(char conversion, int longs) {
    return longs <= 2 && (conversion == 'd' || conversion == 'i' || conversion == 'u' || conversion == 'x');
}

/// Composes a message with the conversions %d %i %u %x %s %c and %%, the numbers also with l or ll. Returns
/// `kNotPlain` if the format has anything else, or if there is no room; the buffer's content is then
/// meaningless.
int FormatPlain(char* buffer, std::size_t size, const char* format, va_list arguments) {
    TextComposer text(buffer, size);
    for (; text.fits() && *format != '\0'; ++format) {
        if (*format != '%') {
            text.Add(*format);
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
                longs == 0   ? text.AddNumber(va_arg(arguments, int))
                : longs == 1 ? text.AddNumber(va_arg(arguments, long))
                             : text.AddNumber(va_arg(arguments, long long));
                break;
            case 'u':
            case 'x': {
                const int base = *format == 'u' ? 10 : 16;
                longs == 0   ? text.AddNumber(va_arg(arguments, unsigned), base)
                : longs == 1 ? text.AddNumber(va_arg(arguments, unsigned long), base)
                             : text.AddNumber(va_arg(arguments, unsigned long long), base);
                break;
            }
            case 's': {
                const char* const string = va_arg(arguments, const char*);
                if (string == nullptr) {
                    return kNotPlain; // the C library has a text for it
                }
                text.Add(string);
                break;
            }
            case 'c':
                text.Add(static_cast<char>(va_arg(arguments, int)));
                break;
            case '%':
                text.Add('%');
                break;
            default:
                return kNotPlain;
        }
    }
    return text.fits() ? text.length() : kNotPlain;
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
