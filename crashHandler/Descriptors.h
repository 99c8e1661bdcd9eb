#pragma once

/// Descriptors in a dying process, whose table may be full and whose standard output may be a pipe that
/// nobody reads. Nothing here takes a lock or allocates; everything may be called from a signal handler.

#include <cstddef>

#include <sys/types.h>

namespace CrashHandling {

/// Keeps descriptors back for the handler, which a host that has used up all others leaves it. May be called
/// again.
void KeepDescriptorsBack();

/// As `open`, on a descriptor above the standard ones. Where the table is full a descriptor that was kept
/// back makes room.
int OpenAboveStandard(const char* path, int flags, mode_t mode = 0);

/// A UDP socket above the standard descriptors: a new one or, where none can be had, the one that was kept
/// back. -1 where there is none either.
int OpenSocket();
/// Closes a socket of `OpenSocket`, but for the one that is kept back.
void CloseSocket(int descriptor);

/// Writes the whole text, unless an error ends it.
void WriteAll(int descriptor, const char* text, std::size_t length);

/// Writes a short text to standard output or error, if that can be done without waiting.
void WriteIfReady(int descriptor, const char* text, std::size_t length);

} // namespace CrashHandling
