#pragma once

/// Descriptors in a dying process, whose descriptor table may be full and whose standard output may be a pipe
/// that nobody reads. Nothing here takes a lock or allocates; everything may be called from a signal handler.

#include <cstddef>

#include <sys/types.h>

namespace CrashHandling {

/// Reserves descriptors for the handler, so that it has some even if the host uses up all others. May be
/// called again.
void KeepDescriptorsBack();

/// Like `open`, but on a descriptor above the standard ones. If the table is full, a reserved descriptor
/// makes room.
int OpenAboveStandard(const char* path, int flags, mode_t mode = 0);

/// A UDP socket above the standard descriptors: a new one or, if none is available, the reserved one. -1 if
/// there is none either.
int OpenSocket();
/// Closes a socket from `OpenSocket`, unless it is the reserved one.
void CloseSocket(int descriptor);

/// Writes the whole text, unless an error stops it.
void WriteAll(int descriptor, const char* text, std::size_t length);

/// Writes a short text to standard output or error, if that can be done without waiting.
void WriteIfReady(int descriptor, const char* text, std::size_t length);

} // namespace CrashHandling
