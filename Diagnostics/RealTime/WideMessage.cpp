#include "Diagnostics/RealTime/WideMessage.h"

#include <cstdarg>
#include <cstdio>
#include <cwchar>

namespace Nima::Common::System::OS::Diagnostics {

// A message that is cut, or does not convert, comes back without a terminator: the last character stays zero.
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
