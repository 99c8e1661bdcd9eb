#pragma once

/// The binary real-time trace: records of a few 32-bit words, filtered by component and level, and written
/// without a lock into a block of memory that outlives the process (the file "SysTrace Buffer" in the working
/// directory).
///
///     SysTraceConfigure();                                  // once, early
///     RTTrace_2(SYSTRACE_ID(12, 0, 345), page, status);     // component 12, level 0, event 345
///     DumpSysTrace(L"SysTrace.bin", 2);
///
/// Until a buffer is configured every `RTTrace` is a no-op. A freshly formatted block lets levels 0 and 1 of
/// every component through. Every process that maps the same block shares its filter and state. If several
/// processes start at once on an unformatted segment, one formats it; the others wait for that, at most 2
/// seconds.
///
/// The file is created with mode 0777 less the umask. Opening it follows a symbolic link and brings it to its
/// size, whatever it was before: the working directory must belong to the device's user.
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

/// Takes the dump in pieces of at most 1,048,576 bytes. Returns nonzero on success, with the number of bytes
/// taken in `*written`; returning 0, or taking no bytes, ends the dump.
typedef int (*SysTraceDumpCallback)(const char* data, int length, int* written, void* context);

NIMA_EXTERN_C_BEGIN

/// Write a record: the id with its time, one entry per argument, and the calling thread. The record is
/// dropped if no buffer is configured or the id's component does not trace at the id's level. Bit 31 of the
/// id is ignored.
NIMA_DIAGNOSTICS_API void RTTrace(unsigned long id);
NIMA_DIAGNOSTICS_API void RTTrace_1(unsigned long id, unsigned long a1);
NIMA_DIAGNOSTICS_API void RTTrace_2(unsigned long id, unsigned long a1, unsigned long a2);
NIMA_DIAGNOSTICS_API void RTTrace_3(unsigned long id, unsigned long a1, unsigned long a2, unsigned long a3);
NIMA_DIAGNOSTICS_API void RTTrace_4(unsigned long id, unsigned long a1, unsigned long a2, unsigned long a3,
                                    unsigned long a4);
NIMA_DIAGNOSTICS_API void RTTrace_5(unsigned long id, unsigned long a1, unsigned long a2, unsigned long a3,
                                    unsigned long a4, unsigned long a5);

/// On first use configures the live buffer over the shared segment. Stores the address of its block in
/// `*out`, which is left alone if the segment is not available. Prints "Failed to get TARN registers.\r\n"
/// when it configures, since this build has no trace hardware. A null `out` only configures.
NIMA_DIAGNOSTICS_API void GetRTTraceBuffer(unsigned char** out);

/// Makes the caller's block the live buffer and formats it unless its header says it is formatted. The block
/// must be 4-byte aligned, have at least 512 bytes, and outlive its use; if its address or size is wrong,
/// nothing changes and `errno` is EINVAL. On success `errno` is not meaningful. The previous buffer is
/// destroyed, so no trace call may be running.
NIMA_DIAGNOSTICS_API void SetRTTraceConfig(unsigned char* buffer, long size);

/// Configures on first use. Returns 1 if there is a live buffer afterwards, otherwise 0.
NIMA_DIAGNOSTICS_API int SysTraceConfigure(void);

/// Maps the shared segment on first use without making it the live buffer. Returns non-null if the segment is
/// available.
NIMA_DIAGNOSTICS_API void* ConfigureSysTrace(void);

/// Unmaps the shared segment. A live buffer over it then dangles: call nothing of this header afterwards
/// except `SetRTTraceConfig`, which makes the others usable again. Must not race with any other call.
NIMA_DIAGNOSTICS_API void ReleaseSysTrace(void);

/// Dumps the live buffer to a file, or the shared segment if there is none. With `backups` above 0 the
/// previous file is kept as `path` with ".1" appended. The filter is cleared meanwhile to pause tracing. Two
/// overlapping dumps of one block save a cleared filter and lose the original, so dump from one place at a
/// time. If a process is killed in the middle of a dump, the filter stays cleared for all processes: switch
/// the levels on again. Returns 19 after a dump of the live buffer and 0 after one of the segment, whatever
/// became of the file (problems are reported on standard output); 12 without a segment.
NIMA_DIAGNOSTICS_API int DumpSysTrace(const wchar_t* path, int backups);

/// The same into a callback, which gets the 256-byte file header in the first call and then the block.
NIMA_DIAGNOSTICS_API int DumpSysTraceEx(SysTraceDumpCallback callback, void* context);

/// Empties the buffer; entries stay in memory until overwritten. Returns the same values as `DumpSysTrace`.
NIMA_DIAGNOSTICS_API int ClearSysTrace(void);

/// Lets a component trace at a level of the live buffer. This can be undone only for all components together
/// (`SysTraceSetAllLevel`). Level 4 is accepted and changes the saved filter. `errno` is 0, or EINVAL for a
/// level above 4. Nothing happens without a live buffer.
NIMA_DIAGNOSTICS_API void SysTraceSetComponentLevel(unsigned char component, unsigned char level);

/// Switches a level on or off for every component; otherwise like `SysTraceSetComponentLevel`.
NIMA_DIAGNOSTICS_API void SysTraceSetAllLevel(unsigned char level, bool on);

/// Both return the low 32 bits of the performance counter.
NIMA_DIAGNOSTICS_API uint32_t ReadQPC32(void);
NIMA_DIAGNOSTICS_API uint32_t ReadTSC32(void);

/// Zeroes `*out` and returns 0, since there is no trace hardware. A null `out` gives 0 with `errno` EINVAL.
NIMA_DIAGNOSTICS_API int GetRTTraceRegisters(TarnRegisterData* out);

/// Stores 0 for the address of a timer register, with `errno` EOPNOTSUPP: there is none. A null `out` gives
/// `errno` EINVAL.
NIMA_DIAGNOSTICS_API void GetRTTraceTimer(unsigned long* out);

/// Zeroes `*out` and returns 0 with `errno` EOPNOTSUPP. A null `out` gives 0 with `errno` EINVAL.
NIMA_DIAGNOSTICS_API int GetRTTraceTimerInfo(NimaTimerHwStruct* out);

NIMA_EXTERN_C_END
