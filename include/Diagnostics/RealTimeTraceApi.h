#pragma once

/// The binary real-time trace: records of a few 32-bit words, written without a lock into a block of memory
/// that outlives the process (the file "SysTrace Buffer" in the working directory), filtered by component and
/// level.
///
///     SysTraceConfigure();                                  // once, early
///     RTTrace_2(SYSTRACE_ID(12, 0, 345), page, status);     // component 12, level 0, event 345
///     DumpSysTrace(L"SysTrace.bin", 2);
///
/// Until a buffer is configured every `RTTrace` is a no-op. A freshly formatted block lets levels 0 and 1 of
/// every component through. Every process that maps the same block shares its filter and state. Of processes
/// that start at once on an unformatted segment one formats it; the others wait for that, at most 2 seconds.
///
/// The file is created as the umask leaves 0777, opened through a symbolic link as well, and brought to its
/// size whatever it was before: the working directory must belong to the device's user.
///
/// All functions may be called from any thread unless they say otherwise. `RTTrace` to `RTTrace_5`,
/// `ReadQPC32` and `ReadTSC32` take no lock and allocate nothing; they may be called from a signal handler.
/// The others may not. Ids, arguments and results are 32-bit values, whatever the size of a `long`.

#include <Diagnostics/Export.h>
#include <Diagnostics/Formats.h>
#include <Diagnostics/Types.h>

/// The id word of an event: component 0 to 127, level 0 to 3, event number 0 to 0x3FFFFF.
#define SYSTRACE_ID(component, level, event) ((level)*0x20000000UL | (component)*0x400000UL | (event))

/// What trace hardware would report: two registers in words 2 and 3. This build has none.
typedef struct TarnRegisterData {
    uint32_t words[4];
} TarnRegisterData;

/// What timer hardware would report. This build has none.
typedef struct NimaTimerHwStruct {
    uint32_t words[5];
} NimaTimerHwStruct;

/// Takes the dump in pieces of at most 1,048,576 bytes. Returns nonzero on success with the number of bytes
/// taken in `*written`; 0, or no bytes taken, ends the dump.
typedef int (*SysTraceDumpCallback)(const char* data, int length, int* written, void* context);

NIMA_EXTERN_C_BEGIN

/// Writes a record: the id with its time, one entry per argument, and the calling thread. Dropped when no
/// buffer is configured or the id's component does not trace at the id's level. Bit 31 of the id is ignored.
NIMA_DIAGNOSTICS_API void RTTrace(unsigned long id);
NIMA_DIAGNOSTICS_API void RTTrace_1(unsigned long id, unsigned long a1);
NIMA_DIAGNOSTICS_API void RTTrace_2(unsigned long id, unsigned long a1, unsigned long a2);
NIMA_DIAGNOSTICS_API void RTTrace_3(unsigned long id, unsigned long a1, unsigned long a2, unsigned long a3);
NIMA_DIAGNOSTICS_API void RTTrace_4(unsigned long id, unsigned long a1, unsigned long a2, unsigned long a3,
                                    unsigned long a4);
NIMA_DIAGNOSTICS_API void RTTrace_5(unsigned long id, unsigned long a1, unsigned long a2, unsigned long a3,
                                    unsigned long a4, unsigned long a5);

/// Configures the live buffer over the shared segment on first use, and stores the address of its block in
/// `*out`, which is left as it is when the segment cannot be had. Prints "Failed to get TARN registers.\r\n"
/// when it configures, since this build has no trace hardware. Null only configures.
NIMA_DIAGNOSTICS_API void GetRTTraceBuffer(unsigned char** out);

/// Makes a block of the caller's the live buffer, formatting it unless its header says it is formatted. The
/// block has to be 4-byte aligned, of at least 512 bytes, and to outlive its use; otherwise nothing changes
/// and `errno` is EINVAL. On success `errno` is not meaningful. The buffer before is destroyed: no trace call
/// may be under way.
NIMA_DIAGNOSTICS_API void SetRTTraceConfig(unsigned char* buffer, long size);

/// Configures on first use; 1 if there is a live buffer then, else 0.
NIMA_DIAGNOSTICS_API int SysTraceConfigure(void);

/// Maps the shared segment on first use without making it the live buffer. Non-null if it could be had.
NIMA_DIAGNOSTICS_API void* ConfigureSysTrace(void);

/// Unmaps the shared segment. A live buffer over it dangles afterwards: nothing of this header may be called
/// any more by then, except after `SetRTTraceConfig`. Must not race with any other call.
NIMA_DIAGNOSTICS_API void ReleaseSysTrace(void);

/// Dumps the live buffer, or where there is none the shared segment, to a file. With `backups` above 0 the
/// file before is kept as `path` with ".1" appended. Tracing is paused meanwhile by clearing the filter: two
/// overlapping dumps of one block save a cleared filter and lose it, so dump from one place at a time. A
/// process that is killed in the middle of one leaves the filter cleared for all: switch the levels on again.
/// Returns 19 after a dump of the live buffer and 0 after one of the segment, whatever became of the file
/// (trouble is reported on standard output); 12 without a segment.
NIMA_DIAGNOSTICS_API int DumpSysTrace(const wchar_t* path, int backups);

/// The same into a callback, called once with the 256-byte file header and then with the block.
NIMA_DIAGNOSTICS_API int DumpSysTraceEx(SysTraceDumpCallback callback, void* context);

/// Makes the buffer empty; entries stay in memory until overwritten. Returns as `DumpSysTrace`.
NIMA_DIAGNOSTICS_API int ClearSysTrace(void);

/// Lets a component trace at a level of the live buffer; there is no taking it back but for all. Level 4 is
/// accepted and reaches the saved filter. `errno` is 0, or EINVAL for a level above 4. Nothing happens
/// without a live buffer.
NIMA_DIAGNOSTICS_API void SysTraceSetComponentLevel(unsigned char component, unsigned char level);

/// Switches a level on or off for every component; otherwise the same.
NIMA_DIAGNOSTICS_API void SysTraceSetAllLevel(unsigned char level, bool on);

/// The low 32 bits of the performance counter.
NIMA_DIAGNOSTICS_API uint32_t ReadQPC32(void);
NIMA_DIAGNOSTICS_API uint32_t ReadTSC32(void);

/// Zeroes `*out` and returns 0: no trace hardware. Null: 0 with `errno` EINVAL.
NIMA_DIAGNOSTICS_API int GetRTTraceRegisters(TarnRegisterData* out);

/// Stores 0 for the address of a timer register, `errno` EOPNOTSUPP: there is none. Null: `errno` EINVAL.
NIMA_DIAGNOSTICS_API void GetRTTraceTimer(unsigned long* out);

/// Zeroes `*out` and returns 0 with `errno` EOPNOTSUPP. Null: 0 with `errno` EINVAL.
NIMA_DIAGNOSTICS_API int GetRTTraceTimerInfo(NimaTimerHwStruct* out);

NIMA_EXTERN_C_END
