#pragma once

/// The native crash handler behind `InstallCrashHandler` and `HandleFatalCrash` (Diagnostics/CrashApi.h). It
/// depends on nothing of the library, takes no lock and allocates nothing but what the runtime's demangler
/// does, so that it works when the process's heap or the library's own state is damaged. Its functions run in
/// signal context.
///
/// Stack, measured to the process's end with the second entry nested in the first: 18 KiB on x86-64, 25 KiB
/// on 32-bit ARM, where the unwinder's cursor alone takes 16 KiB. All names and lines are cut to fixed
/// buffers.

#include <cstddef>

enum {
    kStackFileNameSize = 64, ///< "./stacktrace%d-%d.txt"
    kStackFilePathSize = 72, ///< the same behind the working directory
    kWorkingDirectorySize = 30,
    kCoreDirectorySize = 30,
    kFrameLineSize = 100,
    kSymbolNameSize = 256,
    kNotificationSize = 140
};

/// For the fatal signals: file, "Error: signal %d\n" on standard error, frames, datagram, abort. An entry
/// with SIGABRT is the last: after its datagram the default action ends the process.
void signalHandler(int signal);

/// For unhandled exceptions: the same without the line on standard error.
void terminateHandler();

/// Creates the stack-trace file with the next free number, stores its descriptor in `*descriptor` and its
/// name in `name` (`kStackFileNameSize` characters), and returns the descriptor. Never gives up: where no
/// file can be created at all it goes on trying, with pauses.
int getFileName(int* descriptor, char* name);

/// Writes the frames of the calling thread's stack, innermost first, one line each. The name is not used.
void saveStackTrace(int descriptor, const char* name);

/// Tells the notification service (Mosk) where the file and the core files are, by one datagram.
void notifyMoskAboutCrash(const char* name);

/// The folder where the kernel writes core files, by the pattern in a file: everything before the last
/// separator of its first 29 characters if there are two or more, "/" otherwise, "/var/log" if there is
/// nothing to read.
void coreDirectory(const char* patternFile, char (&directory)[kCoreDirectorySize]);
