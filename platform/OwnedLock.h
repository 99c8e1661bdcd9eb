#pragma once

#include "platform/Handles.h"

#include <atomic>
#include <cstdint>

#include <Diagnostics/Lock.h>

namespace Nima::Common::System::OS::Diagnostics {

/// A lock under which the host's own code may run, whatever that code does. It knows whether the calling
/// thread holds it.
class OwnedLock : public StaticLockStruct {
  public:
    constexpr OwnedLock() = default;

    int lock() {
        const int result = StaticLockStruct::lock();
        owner_.store(CurrentThread(), std::memory_order_relaxed);
        return result;
    }
    bool try_lock() {
        const bool taken = StaticLockStruct::try_lock();
        if (taken) {
            owner_.store(CurrentThread(), std::memory_order_relaxed);
        }
        return taken;
    }
    int unlock() {
        owner_.store(0, std::memory_order_relaxed);
        return StaticLockStruct::unlock();
    }
    void Renew() {
        owner_.store(0, std::memory_order_relaxed);
        StaticLockStruct::Renew();
    }
    // A thread sees its own mark as long as it holds the lock, and nobody else writes that mark.
    bool IsMine() const { return owner_.load(std::memory_order_relaxed) == CurrentThread(); }

  private:
    std::atomic<std::uintptr_t> owner_{0};
};

} // namespace Nima::Common::System::OS::Diagnostics
