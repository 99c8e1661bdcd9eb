#pragma once

namespace Nima::Common::System::OS::Diagnostics {

/// Formats a wide message into 4096 characters and prints it to standard output.
void PrintWideMessage(const wchar_t* format, ...);

} // namespace Nima::Common::System::OS::Diagnostics
