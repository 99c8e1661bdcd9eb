#pragma once

/// Files, file mappings and their handles. Paths are wide and converted as `NarrowPath` does; one that does
/// not convert fails like a file that is not there. A handle that refers to nothing fails with EBADF.

#include "platform/Handles.h"

#include <cstdio>

#include <sys/types.h>

class file_helper : public handle_helper {
  public:
    /// `open`. False on failure, with `errno` set.
    bool Open(const char* path, int flags, mode_t mode);
    int wait(int timeout) override;
    int close() override;
    int descriptor() const { return descriptor_; }

  private:
    int descriptor_ = -1;
};

/// A file with at most one view. Closing it unmaps the view first; where none was ever mapped that is one
/// failing unmap of length 0 at the all-ones address, which does no harm.
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

/// Keeps other processes from what is to be done once with a file, as far as they ask too: holds the file's
/// record lock until the end of its scope. That lock belongs to the process and goes with it, whatever
/// children share its descriptors; threads of one process need a lock of their own beside it.
///
/// Waits for `milliseconds` at most, since the holder may be stopped. Whoever does not get it, also because
/// the file system has no locks, goes on without.
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

/// Opens with the flags `creation | flags | _get_access(access)`, which are POSIX's own, and the permissions
/// `mode | 0770`. Null on failure.
void* _open_file_helper(const wchar_t* path, long access, long mode, long creation, long flags);

/// `freopen` with wide strings; its result.
FILE* _reopen_file_helper(const wchar_t* path, const wchar_t* mode, FILE* stream);

/// Moves the file position; `whence` is POSIX's. The low 32 bits of the offset count, as an unsigned
/// number: there is no seeking backwards. Returns the low 32 bits of the new position, sign-extended, or -1.
long _set_file_pointer_helper(void* file, long offset, long whence);

/// Cuts the file at the position's low 32 bits, sign-extended. 0 on success, 1 on failure.
int _set_end_of_file_helper(void* file);

/// `fsync`. 0 on success, 1 on failure.
int _flush_file_helper(void* file);

/// One `write`; a short write is the caller's to go on with. 1, and the count in `*written` unless that is
/// null; 0 on failure, with `*written` untouched.
int _write_file_helper(void* file, const char* buffer, long length, long* written);

/// The low 32 bits of the size, sign-extended; 0 if it cannot be had.
long _get_file_size_helper(void* file);

/// 1 if the path exists, whatever it is; otherwise 0.
unsigned long _get_file_attributes_helper(const wchar_t* path);

/// Renames, replacing an existing target. 0 on success, 1 on failure.
int _move_file_helper(const wchar_t* from, const wchar_t* to);

/// Removes a file or an empty directory. 0 on success, 1 on failure.
int _delete_file_helper(const wchar_t* path);

/// Opens a file for mapping with the POSIX flags given, creating it if absent. Null on failure.
void* _create_file_mapping_helper(const wchar_t* path, int flags);

/// Makes the file exactly `length - 1` bytes long, one less than the view, and maps `length` bytes of it,
/// shared. `protection` is POSIX's, `offsetHigh` is ignored. The file's blocks are reserved where the file
/// system can do that, so that a full disk is a failed view (ENOSPC) and not a bus error at the first
/// store. Null on failure.
void* _map_view_file_helper(void* mapping, long protection, long offsetHigh, long offset, long length);

/// Does nothing and returns 0: a view lives until its mapping is closed.
int _unmap_view_of_file_helper(void* view);
