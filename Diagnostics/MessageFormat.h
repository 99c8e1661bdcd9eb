#pragma once

#include <cstdarg>
#include <cstddef>

namespace Nima::Common::System::OS::Diagnostics {

/// The same as `vsnprintf`, with its results, for a buffer of at least one byte. Messages that fit and have
/// only plain conversions, such as "page %d of %s", do not need it.
int FormatMessage(char* buffer, std::size_t size, const char* format, va_list arguments)
    __attribute__((format(printf, 3, 0)));

} // namespace Nima::Common::System::OS::Diagnostics
