#pragma once

#include <cstddef>

namespace CrashHandling {

/// Takes a piece of a demangled name.
using NameSink = void (*)(const char* piece, std::size_t length, void* argument);

/// Hands the plain form of a mangled C++ name to `sink`, in pieces. False where the name is none; what was
/// handed over by then is to be thrown away. Unlike the runtime's own demangler it allocates nothing, so a
/// damaged or locked heap is no obstacle.
bool Demangle(const char* mangled, NameSink sink, void* argument);

} // namespace CrashHandling
