#pragma once

#include <pthread.h>

namespace Nima::Common::System::OS::Diagnostics {

/// A plain mutex with a virtual destructor, used as a member or as a base. Not recursive: a thread that locks
/// it twice waits for itself. Meets the standard library's Lockable requirements, so
/// `std::lock_guard<LockStruct>` works. Must not be used in a signal handler.
class LockStruct {
  public:
    LockStruct() = default;
    LockStruct(const LockStruct&) = delete;
    LockStruct& operator=(const LockStruct&) = delete;
    virtual ~LockStruct() { pthread_mutex_destroy(&mutex_); }

    /// Waits until the lock is free and takes it. Returns 0, or the error number of the threads library.
    int lock() { return pthread_mutex_lock(&mutex_); }
    /// Takes the lock if it is free. Returns whether it did.
    bool try_lock() { return pthread_mutex_trylock(&mutex_) == 0; }
    /// Releases the lock. Returns 0, or the error number of the threads library.
    int unlock() { return pthread_mutex_unlock(&mutex_); }
    /// Makes the lock free. Only for the child of a fork, in which the thread that held it does not exist.
    void Renew() { pthread_mutex_init(&mutex_, nullptr); }

  private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

/// The variant for locks that are static objects. It needs no construction, so it works before any
/// constructor has run. It is never destroyed, so threads that still run while the process exits can take it
/// to the very end.
class StaticLockStruct {
  public:
    constexpr StaticLockStruct() = default;
    StaticLockStruct(const StaticLockStruct&) = delete;
    StaticLockStruct& operator=(const StaticLockStruct&) = delete;

    /// As `LockStruct::lock`.
    int lock() { return pthread_mutex_lock(&mutex_); }
    /// As `LockStruct::try_lock`.
    bool try_lock() { return pthread_mutex_trylock(&mutex_) == 0; }
    /// As `LockStruct::unlock`.
    int unlock() { return pthread_mutex_unlock(&mutex_); }
    /// As `LockStruct::Renew`.
    void Renew() { pthread_mutex_init(&mutex_, nullptr); }

  private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

} // namespace Nima::Common::System::OS::Diagnostics
