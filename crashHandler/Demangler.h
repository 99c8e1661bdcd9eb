#pragma once

#include <cstddef>

namespace CrashHandling {

/// Receives a piece of a demangled name.
using NameSink = void (*)(const char* piece, std::size_t length, void* argument);

/// Passes the plain form of a mangled C++ name to `sink`, in pieces. Returns false if the text is not such a
/// name; discard what was passed on by then. Unlike the runtime's own demangler it allocates nothing, so a
/// damaged or locked heap is no obstacle.
bool Demangle(const char* mangled, NameSink sink, void* argument);

} // namespace CrashHandling
