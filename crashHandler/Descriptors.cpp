#include "crashHandler/Descriptors.h"

#include "crashHandler/TextLine.h"

#include <atomic>
#include <cerrno>

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

namespace CrashHandling {

namespace {

constexpr int kFirstAboveStandard = STDERR_FILENO + 1;

/// A descriptor that can be recognised: a host may have closed it and have another file under its number.
struct Kept {
    std::atomic<int> descriptor{-1};
    dev_t device = 0;
    ino_t inode = 0;

    bool Is(int candidate) const {
        struct stat record {};
        return candidate != -1 && ::fstat(candidate, &record) == 0 && record.st_dev == device &&
               record.st_ino == inode;
    }

    /// The descriptor, for one taker only; -1 if there is none any more.
    int Take() {
        const int taken = descriptor.exchange(-1);
        return Is(taken) ? taken : -1;
    }
};

/// Both are sockets, so that nothing else has the same device and inode.
constinit Kept g_Room;
constinit Kept g_Socket;

bool IsTableFull() {
    return errno == EMFILE || errno == ENFILE;
}

int MoveAboveStandard(int descriptor) {
    if (descriptor == -1 || descriptor >= kFirstAboveStandard) {
        return descriptor;
    }
    const int moved = ::fcntl(descriptor, F_DUPFD_CLOEXEC, kFirstAboveStandard);
    ::close(descriptor);
    return moved;
}

int NewSocket() {
    return MoveAboveStandard(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
}

void Keep(Kept& kept) {
    if (kept.Is(kept.descriptor.load())) {
        return;
    }
    const int fresh = NewSocket();
    struct stat record {};
    if (fresh != -1 && ::fstat(fresh, &record) == 0) {
        kept.device = record.st_dev;
        kept.inode = record.st_ino;
        kept.descriptor.store(fresh);
    }
}

bool MakeRoom() {
    const int taken = g_Room.Take();
    if (taken != -1) {
        return ::close(taken) == 0;
    }
    // The host has closed it. The soft limit may be lower than it has to be.
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur == limit.rlim_max) {
        return false;
    }
    limit.rlim_cur = limit.rlim_max;
    return ::setrlimit(RLIMIT_NOFILE, &limit) == 0;
}

/// The same pipe or terminal through a descriptor of our own that never waits; -1 if that fails.
int ReopenWithoutWaiting(int descriptor) {
    TextLine<32> path;
    path.Add("/proc/self/fd/").AddDecimal(descriptor);
    return ::open(path.text(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
}

} // namespace

void KeepDescriptorsBack() {
    Keep(g_Room);
    Keep(g_Socket);
}

int OpenAboveStandard(const char* path, int flags, mode_t mode) {
    int descriptor = ::open(path, flags, mode);
    if (descriptor == -1 && IsTableFull() && MakeRoom()) {
        descriptor = ::open(path, flags, mode);
    }
    return MoveAboveStandard(descriptor);
}

int OpenSocket() {
    const int fresh = NewSocket();
    if (fresh != -1) {
        return fresh;
    }
    const int kept = g_Socket.descriptor.load();
    return g_Socket.Is(kept) ? kept : -1;
}

void CloseSocket(int descriptor) {
    if (descriptor != -1 && descriptor != g_Socket.descriptor.load()) {
        ::close(descriptor);
    }
}

void WriteAll(int descriptor, const char* text, std::size_t length) {
    while (length > 0) {
        const ssize_t written = ::write(descriptor, text, length);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;
        }
        text += written;
        length -= static_cast<std::size_t>(written);
    }
}

void WriteIfReady(int descriptor, const char* text, std::size_t length) {
    struct stat record {};
    pollfd state{descriptor, POLLOUT, 0};
    if (::fstat(descriptor, &record) != 0 || ::poll(&state, 1, 0) != 1 || (state.revents & POLLOUT) == 0) {
        return;
    }
    if (S_ISSOCK(record.st_mode)) {
        ::send(descriptor, text, length, MSG_DONTWAIT | MSG_NOSIGNAL);
        return;
    }
    // Another thread may fill a pipe between `poll` and the write.
    const int own = S_ISREG(record.st_mode) ? -1 : ReopenWithoutWaiting(descriptor);
    WriteAll(own != -1 ? own : descriptor, text, length);
    if (own != -1) {
        ::close(own);
    }
}

} // namespace CrashHandling
