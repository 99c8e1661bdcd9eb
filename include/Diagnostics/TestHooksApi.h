#pragma once

/// Hooks for testers: they provoke each kind of failure on a running device and exercise trace and event
/// paths. Not for products.

#include <Diagnostics/EventLogApi.h>
#include <Diagnostics/Export.h>
#include <Diagnostics/Types.h>

NIMA_EXTERN_C_BEGIN

/// With crash mode 1 (`SetCrashMode`), starts a thread that ends the process with a fatal error 500 seconds
/// later, and returns 1 (0 if no thread could be started). With any other mode does nothing and returns the
/// mode.
NIMA_DIAGNOSTICS_API int XXX_TestAsyncFail(bool interactive);
/// Returns the crash mode.
NIMA_DIAGNOSTICS_API int XXX_TestWaitForAsyncFail(void);
/// The same as `TraceServices::ConfigureDefaultLog` and `ReleaseDefaultLog`.
NIMA_DIAGNOSTICS_API int XXX_TestEzTraceConfig(const wchar_t* fileName, unsigned int maxFileSize,
                                               unsigned int maxRollCount, bool append);
NIMA_DIAGNOSTICS_API int XXX_TestEzTraceRelease(void);
/// Stores a value where a debugger can see it.
NIMA_DIAGNOSTICS_API void XXX_HardwareBreakpoint(uint32_t value);
/// Writes the data at DEBUG, INFO, WARN, ERROR and FATAL through a tracer called `name`, at each level
/// without and with the tag. Name and tag are cut to 254 bytes. Returns the length of the tag. If name or tag
/// is empty or does not convert, returns less than 1 and writes nothing.
NIMA_DIAGNOSTICS_API int XXX_TestEzLargeTraceWrites(const wchar_t* name, const wchar_t* tag,
                                                    const unsigned char* data, int length);
/// Logs a wide event without payload.
NIMA_DIAGNOSTICS_API int XXX_TestNativeEventLogFeature(EventTypes type, const wchar_t* source, long id,
                                                       const wchar_t* file, int line);
/// Logs an 8-bit event with a context in each list, cut to 255 bytes; a context that is null or does not
/// convert is empty.
NIMA_DIAGNOSTICS_API int XXX_TestNativeEventVantorLogFeature(EventTypes type, unsigned long id,
                                                             const wchar_t* source,
                                                             const wchar_t* hashedContext,
                                                             const wchar_t* nonHashedContext);

NIMA_EXTERN_C_END
