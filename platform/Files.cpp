#include "platform/Files.h"

#include "platform/Pause.h"
#include "platform/Text.h"

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <memory>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

constexpr int kNoDescriptor = -1;

int Descriptor(void* file) {
    return IsValidHandle(file) ? static_cast<file_helper*>(static_cast<handle_helper*>(file))->descriptor()
                               : kNoDescriptor;
}

/// Positions and sizes are 32-bit numbers in this system, whatever a `long` holds.
std::int32_t Low32(off_t position) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(position));
}

/// Cuts the file at its current position.
bool TruncateAtPosition(int descriptor) {
    const off_t position = ::lseek(descriptor, 0, SEEK_CUR);
    return position != -1 && ::ftruncate(descriptor, Low32(position)) == 0;
}

/// The object is created first: if memory runs out, no file has been touched and none is left open.
template <class Helper>
void* OpenAs(const char* path, int flags, mode_t mode) {
    auto file = std::make_unique<Helper>();
    if (!file->Open(path, flags, mode)) {
        const int error = errno;
        file.reset();
        errno = error;
        return nullptr;
    }
    handle_helper* const handle = file.release();
    return handle;
}

bool SetRecordLock(int descriptor, short type) {
    struct flock whole {};
    whole.l_type = type;
    whole.l_whence = SEEK_SET;
    return ::fcntl(descriptor, F_SETLK, &whole) == 0;
}

bool LockWithin(int descriptor, int milliseconds) {
    using Nima::Common::System::OS::Diagnostics::BriefPause;
    const Nima::Common::System::OS::Diagnostics::Deadline deadline(milliseconds);
    while (!SetRecordLock(descriptor, F_WRLCK)) {
        const bool isTaken = errno == EAGAIN || errno == EACCES || errno == EINTR;
        if (!isTaken || deadline.HasPassed()) {
            return false;
        }
        BriefPause();
    }
    return true;
}

} // namespace

bool file_helper::Open(const char* path, int flags, mode_t mode) {
    descriptor_ = ::open(path, flags, mode);
    return descriptor_ != kNoDescriptor;
}

int file_helper::wait(int /*timeout*/) {
    return 0;
}

int file_helper::close() {
    return ::close(descriptor_);
}

int mapped_file_helper::close() {
    if (view_ != nullptr) {
        ::munmap(view_, static_cast<std::size_t>(length_));
        view_ = InvalidHandle();
        length_ = 0;
    }
    return file_helper::close();
}

bool mapped_file_helper::ReserveBlocks(long length) const {
    int result = 0;
    do {
        result = ::fallocate(descriptor(), 0, 0, length);
    } while (result != 0 && errno == EINTR);
    return result == 0 || errno == EOPNOTSUPP || errno == ENOSYS;
}

void* mapped_file_helper::Map(long protection, long offset, long length) {
    if (::lseek(descriptor(), static_cast<off_t>(length) - 1, SEEK_SET) == -1 ||
        !TruncateAtPosition(descriptor())) {
        return nullptr;
    }
    if (length > 1 && !ReserveBlocks(length - 1)) {
        return nullptr;
    }
    void* address = ::mmap(nullptr, static_cast<std::size_t>(length), static_cast<int>(protection),
                           MAP_SHARED, descriptor(), static_cast<off_t>(offset));
    view_ = address;
    if (address == MAP_FAILED) {
        return nullptr;
    }
    length_ = static_cast<int>(length);
    return address;
}

ProcessLock::ProcessLock(void* file, int milliseconds)
    : descriptor_(Descriptor(file)), held_(LockWithin(descriptor_, milliseconds)) {}

ProcessLock::~ProcessLock() {
    if (held_) {
        SetRecordLock(descriptor_, F_UNLCK);
    }
}

int _get_access(int access) {
    switch (access & 3) {
        case 3:
            return O_RDWR;
        case 2:
            return O_WRONLY;
        default:
            return O_RDONLY;
    }
}

void* _open_file_helper(const wchar_t* path, long access, long mode, long creation, long flags) {
    const NarrowPath name(path);
    if (name.text() == nullptr) {
        return nullptr;
    }
    const int openFlags = static_cast<int>(creation | flags) | _get_access(static_cast<int>(access));
    return OpenAs<file_helper>(name.text(), openFlags, static_cast<mode_t>(mode | 0770));
}

FILE* _reopen_file_helper(const wchar_t* path, const wchar_t* mode, FILE* stream) {
    const NarrowPath name(path);
    const NarrowPath narrowMode(mode);
    if (name.text() == nullptr || narrowMode.text() == nullptr) {
        return nullptr;
    }
    return std::freopen(name.text(), narrowMode.text(), stream);
}

long _set_file_pointer_helper(void* file, long offset, long whence) {
    const auto unsignedOffset = static_cast<off_t>(static_cast<std::uint32_t>(offset));
    const off_t position = ::lseek(Descriptor(file), unsignedOffset, static_cast<int>(whence));
    return position == -1 ? -1 : Low32(position);
}

int _set_end_of_file_helper(void* file) {
    return TruncateAtPosition(Descriptor(file)) ? 0 : 1;
}

int _flush_file_helper(void* file) {
    return ::fsync(Descriptor(file)) == 0 ? 0 : 1;
}

int _write_file_helper(void* file, const char* buffer, long length, long* written) {
    const ssize_t count = ::write(Descriptor(file), buffer, static_cast<std::size_t>(length));
    if (count == -1) {
        return 0;
    }
    if (written != nullptr) {
        *written = static_cast<long>(count);
    }
    return 1;
}

long _get_file_size_helper(void* file) {
    struct stat record {};
    ::fstat(Descriptor(file), &record);
    return Low32(record.st_size);
}

unsigned long _get_file_attributes_helper(const wchar_t* path) {
    struct stat record {};
    const NarrowPath name(path);
    if (name.text() != nullptr) {
        ::stat(name.text(), &record);
    }
    return (record.st_mode & S_IFMT) != 0 ? 1 : 0;
}

int _move_file_helper(const wchar_t* from, const wchar_t* to) {
    const NarrowPath source(from);
    const NarrowPath target(to);
    if (source.text() == nullptr || target.text() == nullptr) {
        return 1;
    }
    return std::rename(source.text(), target.text()) == 0 ? 0 : 1;
}

int _delete_file_helper(const wchar_t* path) {
    const NarrowPath name(path);
    return name.text() != nullptr && std::remove(name.text()) == 0 ? 0 : 1;
}

void* _create_file_mapping_helper(const wchar_t* path, int flags) {
    const NarrowPath name(path);
    if (name.text() == nullptr) {
        return nullptr;
    }
    return OpenAs<mapped_file_helper>(name.text(), flags | O_CREAT | O_CLOEXEC, 0777);
}

void* _map_view_file_helper(void* mapping, long protection, long /*offsetHigh*/, long offset, long length) {
    if (!IsValidHandle(mapping)) {
        errno = EBADF;
        return nullptr;
    }
    auto* file = static_cast<mapped_file_helper*>(static_cast<handle_helper*>(mapping));
    return file->Map(protection, offset, length);
}

int _unmap_view_of_file_helper(void* /*view*/) {
    return 0;
}
