#include "Diagnostics/RealTime/WideMessage.h"

#include <cstdarg>
#include <cstdio>
#include <cwchar>

namespace Nima::Common::System::OS::Diagnostics {

// If a message is cut or does not convert, the result has no terminator. The last character, which is never
// written, stays zero.
void PrintWideMessage(const wchar_t* format, ...) {
    constexpr std::size_t kSize = 4096;
    wchar_t text[kSize] = {};
    va_list arguments;
    va_start(arguments, format);
    std::vswprintf(text, kSize - 1, format, arguments);
    va_end(arguments);
    std::printf("%ls", text);
}

} // namespace Nima::Common::System::OS::Diagnostics
