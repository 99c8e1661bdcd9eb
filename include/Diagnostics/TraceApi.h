#pragma once

/// The text trace for C callers: named devices, direct writes, levels, the counter. A C program that logs:
///
///     TRACE_DEVICE_HANDLE log = NULL;
///     _TraceConfig config = {TRACE_DEVICE_ROLLING_LOG_FILE, L"LogFile", {{0}}};
///     config.settings.rollingLogFile.maxFileSize = 1 << 20;
///     config.settings.rollingLogFile.fileName = L"device.log";
///     config.settings.rollingLogFile.append = true;
///     if (TraceDeviceCreate(&config, &log) == 0) {
///         TraceDeviceWrite(log, "ready", -1);
///         TraceDeviceRelease(log);
///     }
///
/// Every function may be called from any thread; none may be called from a signal handler. No exception
/// leaves any of them. Wide strings hold 32-bit code points. Paths are converted with the C library's current
/// locale, into at most 255 bytes.

#include <Diagnostics/Export.h>
#include <Diagnostics/Types.h>

NIMA_EXTERN_C_BEGIN

/// Creates the device that `config` describes and registers it under its name. If the name is taken, reopens
/// the registered device with the new settings instead. Its class does not change, whatever type the settings
/// ask for; settings of another type are ignored. Neither is reported. When a new device has been registered,
/// every tracer rebinds to the device "LogFile".
///
/// Returns 0 and stores in `*device` a handle with one reference that belongs to the caller. Returns 22
/// (EINVAL), with nothing created, for a null argument, a null name or an unknown type; 12 (ENOMEM) if memory
/// runs out; otherwise the error number that the device's initialisation left (for a log file, that of the
/// failed open). After a failure `*device` is null, but it is untouched if an argument was null or the type
/// was 0.
NIMA_DIAGNOSTICS_API int TraceDeviceCreate(_TraceConfig* config, TRACE_DEVICE_HANDLE* device);

/// Looks a device up by its exact name. Returns its new reference count and a handle, or -1 and a null handle
/// for an unknown name. A null argument finds nothing and gives -1.
NIMA_DIAGNOSTICS_API int TraceDeviceFind(const wchar_t* name, TRACE_DEVICE_HANDLE* device);

/// Releases a handle's reference. Returns how many remain. If only the registry's own would remain, the
/// device is removed and destroyed, and the result is 0. What a memory queue still holds is then lost, even
/// with mode bit 1; a log file writes out its buffer. Returns 22 (EINVAL) for a null handle.
NIMA_DIAGNOSTICS_API int TraceDeviceRelease(TRACE_DEVICE_HANDLE device);

/// Flushes every registered device in the order of their names. `final` is passed on and makes a log file
/// write every later line at once. A memory queue is not written out by this.
NIMA_DIAGNOSTICS_API void TraceDeviceFlushAll(bool final);

/// Returns the number of live device objects of any class, registered or not.
NIMA_DIAGNOSTICS_API int GetTraceDeviceCount(void);

/// Reads a section of an INI file and drops it: nothing is installed and nothing is reported.
NIMA_DIAGNOSTICS_API void CreateTraceFilter(const wchar_t* iniPath, const wchar_t* section);

/// Writes one line to a device, whatever the effective level. A negative length means the text's string
/// length. Returns 1; 0 for a length of 0, with nothing written. A null handle gives 1, and a null text
/// writes nothing.
NIMA_DIAGNOSTICS_API int TraceDeviceWrite(TRACE_DEVICE_HANDLE device, const char* text, int length);

/// Writes bytes to a device as they are. Returns the same values as `TraceDeviceWrite`; a negative length
/// writes nothing.
NIMA_DIAGNOSTICS_API int TraceDeviceWriteRaw(TRACE_DEVICE_HANDLE device, const void* bytes, int length);

/// Gives a device new settings and reopens it. A null record, or one of another type, keeps the current
/// settings. Returns 1, whether or not that worked; 0 for a null handle.
NIMA_DIAGNOSTICS_API int TraceDeviceReInit(_TraceConfig* config, TRACE_DEVICE_HANDLE device);

/// Writes out what a device holds back. Returns 1; 0 for a null handle.
NIMA_DIAGNOSTICS_API int TraceDeviceFlush(TRACE_DEVICE_HANDLE device);

/// Sets the process-wide level. A line is written while the level is at most the line's threshold
/// (`TraceThreshold`), so a larger value writes less. Any value is accepted; every thread sees it with its
/// next line.
NIMA_DIAGNOSTICS_API void TraceSetEffectiveLevel(int level);

/// Returns the process-wide level, which is 60000 (FATAL, ERROR and WARN) until it is set.
NIMA_DIAGNOSTICS_API int TraceGetEffectiveLevel(void);

/// Formats the header of a line, "%lld <0x%8.8x:%03d> " (counter, calling thread, its priority), followed by
/// "<%s> <%s> " with the level's name and `name`, or, if `name` is null, by "<%s> <ch:%d> " with the channel.
/// `size` is the buffer's size in bytes. A level outside 0 (OFF) to 6 (DEBUG) gets the name of the nearest
/// one. The text is cut to fit and zero-terminated. Returns the length of the whole header, which is more
/// than was stored if it did not fit; 0, with nothing written, for a size below 176 or a null buffer.
NIMA_DIAGNOSTICS_API int TraceFormatHeader(char* buffer, int size, int level, int channel, const char* name);

/// Formats a performance tag: " ::%s::%s::%s::%s::%s::%s::%s::\n" with `f1`, "True" or "False", and `f2` to
/// `f6`; a null `f6` leaves the last field empty. Returns the formatter's result, which is the whole length
/// even if the text was cut to `size`. A null `f1` or `f2` gives 0; otherwise a null buffer, `f3` or `f4`
/// gives 1 (the two differ on purpose). Nothing is written then.
NIMA_DIAGNOSTICS_API int TraceFormatPerfTag(char* buffer, int size, const char* f1, bool flag, const char* f2,
                                            const char* f3, const char* f4, const char* f5, const char* f6);

/// Writes one line for each level, FATAL, ERROR, WARN, INFO, PERF, DEBUG, with `text` in it, through the
/// library's own tracer. Each is subject to the effective level. The first argument is ignored.
NIMA_DIAGNOSTICS_API void TraceTest(int ignored, const char* text);

/// Stores the counter's frequency in counts per second, as the library read it at load. Null is ignored.
NIMA_DIAGNOSTICS_API void GetRTSCDFrequency(int64_t* frequency);

/// Stores the counter that stamps trace lines: the seconds plus the nanoseconds of the monotonic clock,
/// unscaled. Differences between readings are nanoseconds only within one second. Null is ignored.
NIMA_DIAGNOSTICS_API void GetRTSCDValue(int64_t* counter);

/// Fills 16 bytes with a new version-4 identifier and returns 0. Two calls within one second give the same
/// identifier. Returns 22 (EINVAL), with nothing written, for a size other than 16 or a null buffer.
NIMA_DIAGNOSTICS_API int CreateUUID(void* buffer, int size);

/// Reopens standard error, then standard output, onto files that are created or emptied. Returns true only if
/// both succeeded. A failure of the first does not stop the second; each failure writes an ERROR line to the
/// trace. If a stream's file could not be opened, the stream is closed, as the C library leaves it. A stream
/// whose name is null or does not convert stays as it was.
NIMA_DIAGNOSTICS_API bool RedirectStdio(const wchar_t* standardOutput, const wchar_t* standardError);

/// Prints a message of at most 1023 characters straight to standard output, bypassing every device, unless
/// the effective level is above 70000. A percent sign in the message must be doubled. Null is ignored. Like
/// everything the library prints, the message is lost once the host has printed to standard output with
/// `wprintf`.
NIMA_DIAGNOSTICS_API void WriteCriticalDbgMsg(const wchar_t* message);

NIMA_EXTERN_C_END
