#pragma once

#include <cstdint>

namespace Nima::Common::System::OS::Diagnostics {

/// Reads the word at address 0 and then executes an undefined instruction.
[[noreturn]] void ForceAccessViolation();
/// Does nothing.
void _TestStdExceptionCallbackLogging();
/// Stores the address and increments the 32-bit word there, which faults for null.
void _GenerateAccessViolation(std::uint32_t* address);
/// Returns at once for a non-null pointer. Never returns for null: it spins without using stack.
void _GenerateStackOverflow(const void* pointer);

} // namespace Nima::Common::System::OS::Diagnostics
