#pragma once

/// Types shared by the C and the C++ interface: declarations only.

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <wchar.h>

#ifdef __cplusplus
namespace Nima::Common::System::OS::Diagnostics {
class ITraceDevice;
}
/// A counted reference to a trace device. The holder owns one reference and releases it with
/// `TraceDeviceRelease`; after that the handle must not be used. Any number of threads may use one handle at
/// once. In C++ it is the device itself, in C it is opaque.
typedef Nima::Common::System::OS::Diagnostics::ITraceDevice* TRACE_DEVICE_HANDLE;
#else
typedef struct TRACE_DEVICE_HANDLE__* TRACE_DEVICE_HANDLE;
#endif

/// The kinds of trace device, as used in `_TraceConfig::type`. 2 is not used and is refused.
enum TraceDeviceType {
    TRACE_DEVICE_ROLLING_LOG_FILE = 1,
    TRACE_DEVICE_MEMORY_QUEUE = 3,
    TRACE_DEVICE_CONSOLE = 4
};

/// The threshold of each level. A line is written while the effective level is at most its threshold, so
/// setting the effective level to one of these lets that level and the more severe ones through. The steps
/// are uneven, and hosts compare with these exact numbers.
enum TraceThreshold {
    TRACE_THRESHOLD_FATAL = 110000,
    TRACE_THRESHOLD_ERROR = 70000,
    TRACE_THRESHOLD_WARN = 60000,
    TRACE_THRESHOLD_PERF = 55000,
    TRACE_THRESHOLD_INFO = 40000,
    TRACE_THRESHOLD_DEBUG = 30000
};

/// Configures one trace device. The caller owns the record and every string in it; all are read during the
/// call only. The fields after the name depend on the type; a console has no further settings.
typedef struct _TraceConfig {
    int32_t type;        ///< one of `TraceDeviceType`
    const wchar_t* name; ///< the device's name in the registry, never null
    union {
        struct {
            uint32_t maxFileSize;    ///< bytes; with 0, or from 2^31 on, every line finds the log full
            uint32_t maxRollCount;   ///< number of backups; 0 rewinds the file instead of rolling it
            const wchar_t* fileName; ///< the log's path
            bool append;             ///< true appends to an existing file, false rolls it first
        } rollingLogFile;
        struct {
            int32_t queueDepth;      ///< stored, but the depth in effect is that of `SetQueueDepth`
            const wchar_t* fileName; ///< where `Flush` writes; an empty name keeps the device's earlier one
            int32_t mode; ///< bit 1: `Close` writes the queue out; bit 2: a full queue is written out
        } memoryQueue;
    } settings;
} _TraceConfig;

/// A wall-clock time in the form of a Win32 record, but with the raw fields of the C library's broken-down
/// time: nothing is added to year or month.
typedef struct _SYSTEMTIME {
    uint16_t wYear;         ///< years since 1900
    uint16_t wMonth;        ///< months since January, 0 to 11
    uint16_t wDayOfWeek;    ///< days since Sunday, 0 to 6
    uint16_t wDay;          ///< day of the month, 1 to 31
    uint16_t wHour;         ///< 0 to 23
    uint16_t wMinute;       ///< 0 to 59
    uint16_t wSecond;       ///< 0 to 60
    uint16_t wMilliseconds; ///< the microseconds of the second, cut to 16 bits
} _SYSTEMTIME;

/// A signed 64-bit value, as the performance counter delivers it.
typedef struct _LARGE_INTEGER {
    int64_t QuadPart;
} _LARGE_INTEGER;

/// A unique identifier, version 4: 16 bytes, handled as eight 16-bit words in the machine's byte order.
typedef struct _GUID {
    uint16_t words[8];
} _GUID;

#ifdef __cplusplus
static_assert(sizeof(_SYSTEMTIME) == 16 && sizeof(_LARGE_INTEGER) == 8 && sizeof(_GUID) == 16);
static_assert(sizeof(void*) != 4 ||
              (offsetof(_TraceConfig, name) == 4 && offsetof(_TraceConfig, settings) == 8 &&
               offsetof(_TraceConfig, settings.rollingLogFile.maxRollCount) == 12 &&
               offsetof(_TraceConfig, settings.rollingLogFile.fileName) == 16 &&
               offsetof(_TraceConfig, settings.rollingLogFile.append) == 20 &&
               offsetof(_TraceConfig, settings.memoryQueue.fileName) == 12 &&
               offsetof(_TraceConfig, settings.memoryQueue.mode) == 16));
#endif
