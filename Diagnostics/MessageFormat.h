#pragma once

#include <cstdarg>
#include <cstddef>

namespace Nima::Common::System::OS::Diagnostics {

/// `vsnprintf`, with its results, into at least one byte. Messages whose conversions are all of the plain
/// kind, such as "page %d of %s", and that fit, do without it.
int FormatMessage(char* buffer, std::size_t size, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

} // namespace Nima::Common::System::OS::Diagnostics
