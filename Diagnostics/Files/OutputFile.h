#pragma once

#include <string>

namespace Nima::Common::System::OS::Diagnostics {

/// Permission bits of an output, in addition to the 0770 that every file gets.
constexpr long kRollingLogMode = 4;
constexpr long kDumpMode = 6;

/// Opens an output for reading and writing, with the given creation flags and flag 0100000. That number means
/// "large file" on x86 and "do not follow a symbolic link" on ARM. Returns null on failure, with `errno` set.
void* OpenOutputFile(const std::wstring& path, long mode, long creation);

} // namespace Nima::Common::System::OS::Diagnostics
