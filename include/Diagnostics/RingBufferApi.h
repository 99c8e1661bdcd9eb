#pragma once

/// 31 named rings of 32-byte records in the shared segment "System Ring Buffers", a file in the working
/// directory that outlives the process. Writers take no lock; a full ring overwrites its oldest record.
///
///     TRACE_RING_HANDLE ring;
///     if (GetTraceRingBuffer(RING_SCAN_ENGINE, &ring) == 0)
///         WriteEventToRingBuffer(ring, 0, kPaperJam, page, 0, 0, 0);
///
/// The first look-up or dump in a process builds the rings and starts every ring at slot 0, over what earlier
/// processes left. If no segment is available, the rings are in private memory. Handles stay valid to the end
/// of the process. The segment's file is created with mode 0777 less the umask; opening it follows a symbolic
/// link and brings it to its size, whatever it was before: the working directory must belong to the device's
/// user.
///
/// Any thread may call anything here; the two writers may be called from a signal handler. Error 22 is
/// EINVAL.

#include <Diagnostics/Export.h>
#include <Diagnostics/Formats.h>
#include <Diagnostics/Types.h>

/// The rings, in index order; `GetTraceRingBufferId` finds them by the names in doc/rings.md.
enum RING_BUFFERS {
    RING_TRACING,
    RING_RASTER_CTL,
    RING_PRINT_ENGINE,
    RING_ASSURANCE,
    RING_PAGE_LANG,
    RING_PLATFORM, ///< the library's own
    RING_TIMING,
    RING_ENGINE_LINK,
    RING_DATA_STORE,
    RING_PEER_LINK,
    RING_PANEL,
    RING_PANEL_STATE,
    RING_JOB_TRACK,
    RING_ASSURANCE_STRIP,
    RING_HW_ACCEL,
    RING_MODULE_HUB,
    RING_COPIER,
    RING_FACSIMILE,
    RING_SCAN_ENGINE,
    RING_GRAPHICS_FILTER,
    RING_PRINT_FRONT_PIPE,
    RING_WEB_SVC,
    RING_SCAN_TO_DEST,
    RING_IMAGE_STORE,
    RING_MANAGED_ASSURANCE,
    RING_IMAGE_BRIDGE,
    RING_PRINT_PIPE_STATUS,
    RING_FACSIMILE_CMD,
    RING_PREVIEW_JOB,
    RING_MANAGED_VM,
    RING_CONSUMABLES
};

typedef struct TRACE_RING_HANDLE__ TRACE_RING_HANDLE__;
typedef TRACE_RING_HANDLE__* TRACE_RING_HANDLE;

NIMA_EXTERN_C_BEGIN

/// Looks up a ring by its index. Returns 0; 22 with nothing stored for an index outside 0 to 30 or a null
/// pointer.
NIMA_DIAGNOSTICS_API int GetTraceRingBuffer(int index, TRACE_RING_HANDLE* out);

/// Looks up the index of a name, which must match exactly. Returns 0; 22 with nothing stored for an unknown
/// name or a null pointer.
NIMA_DIAGNOSTICS_API int GetTraceRingBufferId(const wchar_t* name, int* id);

/// Copies a record into the ring. Returns 0; 22 for a null handle or record.
NIMA_DIAGNOSTICS_API int WriteDataToRingBuffer(TRACE_RING_HANDLE ring, const RingBufferData* record);

/// Writes a record stamped with the performance counter; `thread` 0 means the calling thread. Each value is
/// cut to 32 bits. Returns 0; 22 for a null handle.
NIMA_DIAGNOSTICS_API int WriteEventToRingBuffer(TRACE_RING_HANDLE ring, unsigned long thread,
                                                unsigned long code, unsigned long a, unsigned long b,
                                                unsigned long c, unsigned long d);

/// Zeroes a ring's records and restarts it at slot 0. A record written at the same time may survive or be
/// torn. Returns 0; 22 for a null handle.
NIMA_DIAGNOSTICS_API int EmptyRingBuffer(TRACE_RING_HANDLE ring);

/// Empties all rings. Returns the result of the last one.
NIMA_DIAGNOSTICS_API int EmptyAllRingBuffers(void);

/// Copies the first `length` bytes of a ring's records, in slot order, and stores the number of bytes copied
/// in `*copied`, which may be null. With a null `out` or a length of 0 it stores the ring's size in bytes
/// instead. Returns 0; 22 for a null handle.
NIMA_DIAGNOSTICS_API int GetTraceData(TRACE_RING_HANDLE ring, unsigned char* out, unsigned long length,
                                      unsigned long* copied);

/// Writes this process's rings to a file as text. With `backups` above 0 the previous file is kept as `path`
/// with ".1" appended. A file that cannot be opened is not reported.
NIMA_DIAGNOSTICS_API void DumpRingBuffersUnformatted(const wchar_t* path, int backups);

/// Meant to write the shared segment, whoever laid it out, to a file as text. Beware: opening the segment
/// cuts its file to 4095 bytes, so its records are lost, and a live process that has the rings mapped faults
/// at its next write beyond the first page. On this platform the call then ends without writing a file.
/// Returns 28 if no rings were ever laid out, otherwise the error number of the step that failed, which may
/// be 0 or stale. The safe way to look at another process's rings is to map or read the file "System Ring
/// Buffers" for reading (doc/rings.md).
NIMA_DIAGNOSTICS_API int DumpRingBuffersUnformattedEx(const wchar_t* path, int backups);

/// Returns 0 on every processor.
NIMA_DIAGNOSTICS_API int IsARM(void);

NIMA_EXTERN_C_END
