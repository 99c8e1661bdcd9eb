#pragma once

/// The native crash handler: `InstallCrashHandler` and `HandleFatalCrash` (Diagnostics/CrashApi.h). It
/// depends on nothing else in the library, takes no lock and does not allocate, so it works when the
/// process's heap or the library's own state is damaged. Its functions run in signal context.
///
/// The stack is walked in a copy of the process that is watched, and ended if it hangs (StackReport.h). A
/// fault ends the step it happens in (CrashThreads.h); the steps after it are still done.
///
/// All names and lines are cut to fixed buffers.

#include "crashHandler/BufferSizes.h"

/// For the fatal signals: file, "Error: signal %d\n" on standard error, frames, datagram, abort. An entry
/// with SIGABRT is the last one: after its datagram, and those of other threads that are still reporting, the
/// default action ends the process.
void signalHandler(int signal);

/// For unhandled exceptions: the same without the line on standard error.
void terminateHandler();

/// Creates the stack-trace file with the next free number. Stores its descriptor, which is above the standard
/// ones, in `*descriptor` and its name in `name` (`kStackFileNameSize` characters), and returns the
/// descriptor. Never gives up: if no file can be created at all, it keeps trying, with pauses. The handlers
/// themselves continue without a file after half a second.
int getFileName(int* descriptor, char* name);

/// Writes the frames of the calling thread's stack, innermost first, one line each. The name is not used.
void saveStackTrace(int descriptor, const char* name);

/// Sends one datagram that tells the notification service (Mosk) where the file and the core files are.
void notifyMoskAboutCrash(const char* name);

/// The folder where the kernel writes core files, taken from the first 29 characters of a file with the
/// kernel's pattern: everything before their last separator if there are two or more, otherwise "/".
/// "/var/log" if the file is empty or cannot be read.
void coreDirectory(const char* patternFile, char (&directory)[kCoreDirectorySize]);
