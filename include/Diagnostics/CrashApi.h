#pragma once

/// Crashes, deliberate and accidental. A host prepares once, early:
///
///     g_CrashLogFile = L"/var/log/crash.txt";     // where the crash log goes
///     g_TriageFilePath = L"/var/log";             // where "SysTrace.bin" goes
///     EnableExitTraps();                          // an unexpected exit is a crash as well
///     InstallCrashHandler(-1);                    // fatal signals, unhandled exceptions
///
/// and calls this when it cannot go on:
///
///     DeviceFatalError(0x31AC01, __FILE__, __LINE__);
///
/// doc/crash-log.md and doc/stack-trace.md describe what is left behind. Values passed as `long` are cut to
/// 32 bits. Any thread may call anything here; only `HandleFatalCrash` may be called from a signal handler.
/// No exception leaves.

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
/// the host's and must stay valid.
extern NIMA_DIAGNOSTICS_API const wchar_t* g_CrashLogFile; ///< the crash log's path; null: no crash log
extern NIMA_DIAGNOSTICS_API const wchar_t*
    g_TriageFilePath; ///< the folder for "SysTrace.bin"; null: no such file
extern NIMA_DIAGNOSTICS_API const wchar_t* g_CrashDumpFile; ///< handed to `GenerateCrashDump`

/// End the process: they write the failure lines to the trace and to standard output, write the crash log and
/// "SysTrace.bin", apply the policy below, flush the trace and shut it down, and call the C library's `exit`
/// with `code` as status. They do not return. Only one thread gets this far; other threads that fail
/// meanwhile wait until the process is gone. `file` is the source file, null if unknown. `extra` holds up to
/// four words for the crash log (further ones are ignored, null counts as none). `pointers` is the native
/// exception behind the failure, null if there was none.
NIMA_DIAGNOSTICS_API int DeviceFatalError(int code, const char* file, int line);
NIMA_DIAGNOSTICS_API int DeviceFatalErrorExtra(int code, const char* file, int line, int extraCount,
                                               const int32_t* extra);
NIMA_DIAGNOSTICS_API int DeviceFatalException(int code, const char* file, int line,
                                              _EXCEPTION_POINTERS* pointers);
NIMA_DIAGNOSTICS_API int DeviceFatalExceptionExtra(int code, const char* file, int line,
                                                   _EXCEPTION_POINTERS* pointers, int extraCount,
                                                   const int32_t* extra);

/// Takes the lock that serialises crash handling. Waits while any thread, even this one, holds it. Returns 1.
NIMA_DIAGNOSTICS_API int LockCrashHandler(void);
/// Releases that lock. Returns 0 or an error number of the threads library (1 if nobody holds the lock).
NIMA_DIAGNOSTICS_API int ReleaseCrashHandler(void);

/// With a nonzero flag, a crashed process waits for a debugger before it ends.
NIMA_DIAGNOSTICS_API void WaitForDebugSetup(int flag);
/// If the flag is set, waits until the event "DrelCrashContinue" is set. Only a debugger sets it, by calling
/// the library's `ContinueAfterCrash`; without one this waits for ever.
NIMA_DIAGNOSTICS_API void WaitForDebug(void);

/// A value kept for the host, 0 at first. 1 arms the asynchronous failure of the test hooks; crash handling
/// ignores it.
NIMA_DIAGNOSTICS_API int GetCrashMode(void);
NIMA_DIAGNOSTICS_API void SetCrashMode(int mode);

/// Treats an `exit` of the process as a crash with error code 0x0049380A: the crash is recorded, and the exit
/// continues with its own status. Enabling the traps again has no effect.
NIMA_DIAGNOSTICS_API void EnableExitTraps(void);
NIMA_DIAGNOSTICS_API void DisableExitTraps(void);

/// Notes that a reboot follows and shuts the trace down; the process then ends on its own. Returns 0.
NIMA_DIAGNOSTICS_API int RebootAfterCrash(void);

/// Hooks: a host that defines a function of the same name replaces the library's. This one decides whether to
/// recover automatically from a crash. The library's returns 1 (yes) and leaves the action word alone.
NIMA_DIAGNOSTICS_API int IsOkToAutoRecover(long code, long faultAddress, uint32_t* action);
/// Writes a dump of the process. The library's does nothing and returns 0.
NIMA_DIAGNOSTICS_API int GenerateCrashDump(const wchar_t* path, int type, int extra);

/// Sets the boot cycle that crash logs name.
NIMA_DIAGNOSTICS_API void SetBootCycleForProcess(long bootCycle);

/// Writes a crash log and, into the same folder, "SysTrace.bin", without ending the process. The folder is
/// `path` up to and including its last separator: the dump for /var/log/crash.txt is /var/log/\SysTrace.bin,
/// and for a bare file name it is \SysTrace.bin in the working directory. `type` is 1 for a native exception
/// `code` at `address` and 0 for an exit; any other value takes `code` as the error code. Three words are
/// ignored. With `shared` the process-wide callback is filled, without a lock: make only one such call at a
/// time. Returns 1, or 0 if the crash log could not be written.
NIMA_DIAGNOSTICS_API int GatherTriageSnapshot(const wchar_t* path, uint32_t backups, int type, long code,
                                              long address, uint32_t ignored1, uint32_t ignored2,
                                              uint32_t ignored3, bool shared);

/// Catches fatal signals (SIGSEGV, SIGILL, SIGTRAP, SIGFPE, SIGBUS, SIGSYS, SIGPIPE, SIGXCPU, SIGXFSZ,
/// SIGABRT) and unhandled exceptions: it writes a stack-trace file into the working directory, sends a
/// datagram to the notification service, and aborts. It also sets the soft limit of core files to
/// `coreSizeLimit` bytes or the hard limit, whichever is smaller; a negative value means the hard limit. It
/// uses none of the above: no lock, no tracer, no heap. Call it once, before other threads start.
///
/// The process ends whatever its state: in the middle of an allocation or of `dlopen`, with a damaged heap,
/// with a full descriptor table, without a folder to write to, or with a standard output that nobody reads.
/// The stack is walked in a short-lived copy of the process, which is ended if it makes no progress. An
/// `exit` that another thread calls meanwhile waits for the report; the process then ends by SIGABRT.
///
/// A stack overflow leaves a trace too if the thread has an alternate signal stack (`sigaltstack`). The
/// calling thread gets one unless it has one already; a host's other threads set up their own, of at least 16
/// KB.
///
/// Reserves two descriptors and 400 KB of address space.
NIMA_DIAGNOSTICS_API void InstallCrashHandler(int coreSizeLimit);

/// For a host's own fatal conditions: writes a report with the message, the code and the given call stack
/// (the calling thread's if that is empty), sends the datagram, and raises SIGABRT. Does not return. Null
/// strings count as empty.
NIMA_DIAGNOSTICS_API void HandleFatalCrash(const char* message, const char* callStack, unsigned code,
                                           const char* file, unsigned line);

NIMA_EXTERN_C_END
