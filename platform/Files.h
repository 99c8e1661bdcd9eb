#pragma once

/// Files, file mappings and their handles. Paths are wide and converted as `NarrowPath` does; a path that
/// does not convert fails like a file that does not exist. A handle that refers to nothing fails with EBADF.

#include "platform/Handles.h"

#include <cstdio>

#include <sys/types.h>

class file_helper : public handle_helper {
  public:
    /// Calls `open`. Returns false on failure, with `errno` set.
    bool Open(const char* path, int flags, mode_t mode);
    int wait(int timeout) override;
    int close() override;
    int descriptor() const { return descriptor_; }

  private:
    int descriptor_ = -1;
};

/// A file with at most one view. Closing it unmaps the view first. If none was ever mapped, that is a failing
/// unmap of length 0 at the all-ones address, which does no harm.
class mapped_file_helper final : public file_helper {
  public:
    mapped_file_helper() : view_(InvalidHandle()) {}
    int close() override;
    void* Map(long protection, long offset, long length);

  private:
    bool ReserveBlocks(long length) const;

    void* view_;
    int length_ = 0;
};

/// Keeps other processes away from something that is to be done once with a file, provided that they ask for
/// the lock too. Holds the file's record lock until the end of its scope. That lock belongs to the process
/// and ends with it, even if children share its descriptors; threads of one process need another lock
/// besides.
///
/// Waits at most `milliseconds`, since the holder may be stopped. A caller that does not get the lock,
/// perhaps because the file system has no locks, continues without it.
class ProcessLock {
  public:
    ProcessLock(void* file, int milliseconds);
    ProcessLock(const ProcessLock&) = delete;
    ProcessLock& operator=(const ProcessLock&) = delete;
    ~ProcessLock();

  private:
    int descriptor_;
    bool held_;
};

/// Bit 0 of a Win32 access mask is read, bit 1 write: O_RDWR, O_RDONLY (also for neither) or O_WRONLY.
int _get_access(int access);

/// Opens with the POSIX flags `creation | flags | _get_access(access)` and the permissions `mode | 0770`.
/// Returns null on failure.
void* _open_file_helper(const wchar_t* path, long access, long mode, long creation, long flags);

/// `freopen` with wide strings; returns its result.
FILE* _reopen_file_helper(const wchar_t* path, const wchar_t* mode, FILE* stream);

/// Moves the file position; `whence` is as in POSIX. Only the low 32 bits of the offset count, as an unsigned
/// number: there is no seeking backwards. Returns the low 32 bits of the new position, sign-extended, or -1.
long _set_file_pointer_helper(void* file, long offset, long whence);

/// Cuts the file at the low 32 bits of its position, sign-extended. Returns 0 on success, 1 on failure.
int _set_end_of_file_helper(void* file);

/// Calls `fsync`. Returns 0 on success, 1 on failure.
int _flush_file_helper(void* file);

/// One `write`; after a short write the caller must continue. Returns 1, with the count in `*written` unless
/// that is null; 0 on failure, with `*written` untouched.
int _write_file_helper(void* file, const char* buffer, long length, long* written);

/// Returns the low 32 bits of the size, sign-extended; 0 if the size is not available.
long _get_file_size_helper(void* file);

/// Returns 1 if the path exists, whatever it is; otherwise 0.
unsigned long _get_file_attributes_helper(const wchar_t* path);

/// Renames, replacing an existing target. Returns 0 on success, 1 on failure.
int _move_file_helper(const wchar_t* from, const wchar_t* to);

/// Removes a file or an empty directory. Returns 0 on success, 1 on failure.
int _delete_file_helper(const wchar_t* path);

/// Opens a file for mapping with the given POSIX flags, creating it if absent. Returns null on failure.
void* _create_file_mapping_helper(const wchar_t* path, int flags);

/// Makes the file exactly `length - 1` bytes long, one less than the view, and maps `length` bytes of it,
/// shared. `protection` is as in POSIX; `offsetHigh` is ignored. The file's blocks are reserved if the file
/// system can do that, so that a full disk makes this fail (ENOSPC) instead of causing a bus error at the
/// first store. Returns null on failure.
void* _map_view_file_helper(void* mapping, long protection, long offsetHigh, long offset, long length);

/// Does nothing and returns 0: a view lives until its mapping is closed.
int _unmap_view_of_file_helper(void* view);
