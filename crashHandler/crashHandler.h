#pragma once

/// The native crash handler behind `InstallCrashHandler` and `HandleFatalCrash` (Diagnostics/CrashApi.h). It
/// depends on nothing of the library, takes no lock and does not allocate, so that it works when the
/// process's heap or the library's own state is damaged. Its functions run in signal context.
///
/// The stack is walked in a copy of the process that is watched and ended when it hangs (StackReport.h). A
/// fault within any step is passed over (CrashThreads.h): whatever fails, the steps after it are done.
///
/// All names and lines are cut to fixed buffers.

#include "crashHandler/BufferSizes.h"

/// For the fatal signals: file, "Error: signal %d\n" on standard error, frames, datagram, abort. An entry
/// with SIGABRT is the last: after its datagram, and those of other threads that are under way, the default
/// action ends the process.
void signalHandler(int signal);

/// For unhandled exceptions: the same without the line on standard error.
void terminateHandler();

/// Creates the stack-trace file with the next free number, stores its descriptor, which is above the standard
/// ones, in `*descriptor` and its name in `name` (`kStackFileNameSize` characters), and returns the
/// descriptor. Never gives up: where no file can be created at all it goes on trying, with pauses. The
/// handlers themselves go on without a file after half a second.
int getFileName(int* descriptor, char* name);

/// Writes the frames of the calling thread's stack, innermost first, one line each. The name is not used.
void saveStackTrace(int descriptor, const char* name);

/// Tells the notification service (Mosk) where the file and the core files are, by one datagram.
void notifyMoskAboutCrash(const char* name);

/// The folder where the kernel writes core files, by the pattern in a file: everything before the last
/// separator of its first 29 characters if there are two or more, "/" otherwise, "/var/log" if there is
/// nothing to read.
void coreDirectory(const char* patternFile, char (&directory)[kCoreDirectorySize]);
