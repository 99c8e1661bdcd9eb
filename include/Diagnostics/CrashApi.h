#pragma once

/// Dying on purpose and by accident. A host prepares once, early:
///
///     g_CrashLogFile = L"/var/log/crash.txt";     // where the crash log goes
///     g_TriageFilePath = L"/var/log";             // where "SysTrace.bin" goes
///     EnableExitTraps();                          // an exit that nobody announced is a crash as well
///     InstallCrashHandler(-1);                    // fatal signals, unhandled exceptions
///
/// and where it meets what it cannot survive calls
///
///     DeviceFatalError(0x31AC01, __FILE__, __LINE__);
///
/// doc/crash-log.md and doc/stack-trace.md tell what is left behind. Values that a `long` carries are cut to
/// 32 bits. Any thread may call anything here; nothing but `HandleFatalCrash` may be called from a signal
/// handler. No exception leaves.

#include <Diagnostics/Export.h>
#include <Diagnostics/Types.h>

/// A native exception in the shape of a Win32 record.
typedef struct _EXCEPTION_RECORD {
    uint32_t ExceptionCode;
    uint32_t ExceptionFlags;
    struct _EXCEPTION_RECORD* ExceptionRecord; ///< a nested record, not read
    void* ExceptionAddress;                    ///< its low 32 bits are shown
    uint32_t NumberParameters;                 ///< at most 15 are read
    uintptr_t ExceptionInformation[15];        ///< their low 32 bits are shown
} _EXCEPTION_RECORD;

/// Either pointer may be null. Read during the call only.
typedef struct _EXCEPTION_POINTERS {
    _EXCEPTION_RECORD* ExceptionRecord;
    void* ContextRecord;
} _EXCEPTION_POINTERS;

NIMA_EXTERN_C_BEGIN

/// Set by the host, read when a crash is handled; null until then, and never written here. The strings stay
/// the host's and have to stay valid.
extern NIMA_DIAGNOSTICS_API const wchar_t* g_CrashLogFile; ///< the crash log's path; null: no crash log
extern NIMA_DIAGNOSTICS_API const wchar_t*
    g_TriageFilePath; ///< the folder for "SysTrace.bin"; null: no such file
extern NIMA_DIAGNOSTICS_API const wchar_t* g_CrashDumpFile; ///< handed to `GenerateCrashDump`

/// Ends the process: failure lines to the trace and to standard output, crash log and "SysTrace.bin", the
/// policy below, trace flushed and shut down, then the C library's `exit` with `code` as status. They do not
/// return. Only one thread gets to do this; others that fail meanwhile wait until the process is gone. `file`
/// is the source file, null if not known. `extra` are up to four words for the crash log (further ones are
/// ignored, null counts as none), `pointers` the native exception behind the failure, null if there was none.
NIMA_DIAGNOSTICS_API int DeviceFatalError(int code, const char* file, int line);
NIMA_DIAGNOSTICS_API int DeviceFatalErrorExtra(int code, const char* file, int line, int extraCount,
                                               const int32_t* extra);
NIMA_DIAGNOSTICS_API int DeviceFatalException(int code, const char* file, int line,
                                              _EXCEPTION_POINTERS* pointers);
NIMA_DIAGNOSTICS_API int DeviceFatalExceptionExtra(int code, const char* file, int line,
                                                   _EXCEPTION_POINTERS* pointers, int extraCount,
                                                   const int32_t* extra);

/// Takes the lock that serialises crash handling; waits while another thread, or this one, holds it.
/// Returns 1.
NIMA_DIAGNOSTICS_API int LockCrashHandler(void);
/// Gives it back. Returns 0 or an error number of the threads library (1 where nobody holds it).
NIMA_DIAGNOSTICS_API int ReleaseCrashHandler(void);

/// With a nonzero flag a crashed process waits for a debugger before it ends.
NIMA_DIAGNOSTICS_API void WaitForDebugSetup(int flag);
/// Waits, if the flag is set, until the event "DrelCrashContinue" is set: for ever unless a debugger does so
/// (it calls the library's `ContinueAfterCrash`).
NIMA_DIAGNOSTICS_API void WaitForDebug(void);

/// A value kept for the host, 0 at first. 1 arms the asynchronous failure of the test hooks; crash handling
/// ignores it.
NIMA_DIAGNOSTICS_API int GetCrashMode(void);
NIMA_DIAGNOSTICS_API void SetCrashMode(int mode);

/// Treats an `exit` of the process as a crash with error code 0x0049380A: the crash is recorded, and the exit
/// goes on with its own status. Enabling twice is enabling once.
NIMA_DIAGNOSTICS_API void EnableExitTraps(void);
NIMA_DIAGNOSTICS_API void DisableExitTraps(void);

/// Notes that a reboot follows and shuts the trace down; the process goes on to its end by itself. Returns 0.
NIMA_DIAGNOSTICS_API int RebootAfterCrash(void);

/// Hooks: a host that defines a function of this name replaces ours. Whether to recover automatically from a
/// crash (ours: 1, yes, with the action word left alone) ...
NIMA_DIAGNOSTICS_API int IsOkToAutoRecover(long code, long faultAddress, uint32_t* action);
/// ... and writing a dump of the process (ours: nothing, 0).
NIMA_DIAGNOSTICS_API int GenerateCrashDump(const wchar_t* path, int type, int extra);

/// The boot cycle that crash logs name.
NIMA_DIAGNOSTICS_API void SetBootCycleForProcess(long bootCycle);

/// Writes a crash log and, into the same folder, "SysTrace.bin" without ending the process. The folder is the
/// path's up to its last separator, which is kept: the dump of /var/log/crash.txt is /var/log/\SysTrace.bin,
/// and that of a bare file name \SysTrace.bin in the working directory. `type` is 1 for a native exception of
/// that `code` at `address`, 0 for an exit, anything else takes `code` as the error code. Three words are
/// ignored. With `shared` the process-wide callback is filled, without a lock: only one such call at a time.
/// Returns 1, or 0 when no crash log could be written.
NIMA_DIAGNOSTICS_API int GatherTriageSnapshot(const wchar_t* path, uint32_t backups, int type, long code,
                                              long address, uint32_t ignored1, uint32_t ignored2,
                                              uint32_t ignored3, bool shared);

/// Catches fatal signals (SIGSEGV, SIGILL, SIGTRAP, SIGFPE, SIGBUS, SIGSYS, SIGPIPE, SIGXCPU, SIGXFSZ,
/// SIGABRT) and unhandled exceptions: a stack-trace file in the working directory, a datagram to the
/// notification service, abort. Sets the soft limit of core files to the smaller of `coreSizeLimit` bytes and
/// the hard limit; negative: the hard limit. Independent of all of the above: no lock, no tracer, no heap.
/// Call it once, before other threads start.
///
/// The process ends whatever its state: in the middle of an allocation or of `dlopen`, with a damaged heap, a
/// full table of descriptors, no folder to write to, or a standard output that nobody reads. The stack is
/// walked in a short-lived copy of the process, which is ended when it makes no progress.
///
/// A thread that has an alternate signal stack (`sigaltstack`) leaves a trace of a stack overflow, too. The
/// calling thread is given one unless it has one; a host's other threads set up their own, of at least 16 KB.
///
/// Keeps two descriptors and 400 KB of address space for itself.
NIMA_DIAGNOSTICS_API void InstallCrashHandler(int coreSizeLimit);

/// For a host's own fatal conditions: a report with the message, the code and the call stack given (or, where
/// that is empty, the calling thread's), the datagram, SIGABRT. Does not return. Null strings count as empty.
NIMA_DIAGNOSTICS_API void HandleFatalCrash(const char* message, const char* callStack, unsigned code,
                                           const char* file, unsigned line);

NIMA_EXTERN_C_END
