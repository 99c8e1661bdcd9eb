#pragma once

/// Win32-style handles over POSIX. A handle is a `void*` that points to an object of the `handle_helper`
/// family. A failed creation returns null. No operation returns the all-ones value, which owners use for
/// "nothing open". Time-outs, names, sharing and security arguments are accepted and ignored. The results are
/// not uniform, and callers test for exactly what is stated here. `errno` is left as the POSIX call set it.
/// Nothing here is signal-safe.

#include <cstdint>

#include <pthread.h>

class handle_helper {
  public:
    handle_helper() = default;
    handle_helper(const handle_helper&) = delete;
    handle_helper& operator=(const handle_helper&) = delete;

    /// Blocks until the object is signalled, whatever the time-out. Returns 0 when the wait completed.
    virtual int wait(int timeout) = 0;
    /// Releases the system's resource. Returns 0 on success.
    virtual int close() = 0;
    virtual ~handle_helper() = default;
};

/// Signalled once its flag is set, and from then on for good: a wait never clears the flag. The owner signals
/// it with `Set`.
class event_helper final : public handle_helper {
  public:
    explicit event_helper(bool signalled) : signalled_(signalled) {}
    int wait(int timeout) override;
    int close() override;
    void Set();

  private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
    pthread_cond_t condition_ = PTHREAD_COND_INITIALIZER;
    bool signalled_;
};

/// A binary lock: a wait takes it, its holder releases it with `Release`.
class semaphore_helper final : public handle_helper {
  public:
    int wait(int timeout) override;
    int close() override;
    void Release() { pthread_mutex_unlock(&mutex_); }

  private:
    pthread_mutex_t mutex_ = PTHREAD_MUTEX_INITIALIZER;
};

/// Not recursive.
class critical_section_helper final : public handle_helper {
  public:
    critical_section_helper() = default;
    int Create() { return pthread_mutex_init(&mutex_, nullptr); }
    int wait(int timeout) override;
    int close() override;
    // Named as the standard library's guards require.
    int lock() { return pthread_mutex_lock(&mutex_); }
    bool try_lock() { return pthread_mutex_trylock(&mutex_) == 0; }
    int unlock() { return pthread_mutex_unlock(&mutex_); }
    /// In the child of a fork, makes the lock free, whoever held it.
    void Renew() { pthread_mutex_init(&mutex_, nullptr); }

  private:
    pthread_mutex_t mutex_{};
};

/// A wait joins the thread and returns the result of the join. Closing neither joins nor detaches the thread.
class thread_helper final : public handle_helper {
  public:
    thread_helper(void* (*start)(void*), void* argument);
    int wait(int timeout) override;
    int close() override;
    pthread_t id() const { return id_; }
    bool started() const { return started_; }

  private:
    pthread_t id_{};
    bool started_;
};

/// The value with which owners of handles mean "nothing open".
inline void* InvalidHandle() {
    return reinterpret_cast<void*>(~std::uintptr_t{0}); // NOLINT(performance-no-int-to-ptr)
}

/// Whether an owner's handle refers to an object: it is neither null nor the all-ones value.
inline bool IsValidHandle(const void* handle) {
    return handle != nullptr && handle != InvalidHandle();
}

/// Closes a handle at the end of its scope, however the scope is left.
class HandleGuard {
  public:
    explicit HandleGuard(void* handle) : handle_(handle) {}
    HandleGuard(const HandleGuard&) = delete;
    HandleGuard& operator=(const HandleGuard&) = delete;
    ~HandleGuard();

  private:
    void* handle_;
};

/// Closes and deletes the object. Returns 0 on success; 1 if its `close` reported anything else, as a
/// thread's always does; 1 for a handle that refers to nothing.
int _close_handle_helper(void* handle);

/// Blocks until the handle is signalled. Returns the result of its wait: 0, or a thread's join error.
int _wait_handle_helper(void* handle, long timeout);

/// Never returns null. Always a manual-reset event, never shared with other processes.
void* _create_event_helper(bool manualReset, bool initialState, const wchar_t* name);

/// Never returns null. With an initial count of 0 the creating thread holds it at once.
void* _create_semaphore_helper(int security, int initialCount, int maximumCount, const wchar_t* name);

/// The critical-section helpers return 0 or an error number of the threads library.
int _create_critical_section_helper(void** out);
int _enter_critical_section_helper(void* criticalSection);
int _leave_critical_section_helper(void* criticalSection);
/// Destroys the object and sets `*criticalSection` to null.
void _delete_critical_section_helper(void** criticalSection);

/// The object that a critical section's handle refers to.
inline critical_section_helper* AsCriticalSection(void* handle) {
    return static_cast<critical_section_helper*>(static_cast<handle_helper*>(handle));
}

/// Starts a thread with default attributes. Never returns null, even if no thread could be started; waiting
/// for such a thread fails with ESRCH.
void* _create_thread_helper(void* (*start)(void*), void* argument);

/// The scheduling priority of a thread handle's thread, 0 if it is not available. Null, or a kernel thread
/// identifier in place of the handle, means the calling thread, so that no line needs a system call to find
/// that identifier.
int _get_thread_priority_helper(void* thread);

/// The calling thread's identifier in the threads library. Never 0, and the same in a forked child.
inline std::uintptr_t CurrentThread() {
    return reinterpret_cast<std::uintptr_t>(reinterpret_cast<void*>(pthread_self()));
}

/// The same cut to 32 bits, as headers and records show it.
inline std::uint32_t CurrentThreadId() {
    return static_cast<std::uint32_t>(CurrentThread());
}
