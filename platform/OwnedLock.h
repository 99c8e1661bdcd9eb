#pragma once

#include "platform/Handles.h"

#include <atomic>
#include <cstdint>

#include <Diagnostics/Lock.h>

namespace Nima::Common::System::OS::Diagnostics {

/// A lock under which the host's own code may run, and with it anything. It knows whether the calling thread
/// is the one that holds it.
class OwnedLock : public StaticLockStruct {
  public:
    constexpr OwnedLock() = default;

    int lock() {
        const int result = StaticLockStruct::lock();
        owner_.store(CurrentThread(), std::memory_order_relaxed);
        return result;
    }
    int unlock() {
        owner_.store(0, std::memory_order_relaxed);
        return StaticLockStruct::unlock();
    }
    // A thread sees its own mark for as long as it holds the lock, and nobody else writes that mark.
    bool IsMine() const { return owner_.load(std::memory_order_relaxed) == CurrentThread(); }

  private:
    std::atomic<std::uintptr_t> owner_{0};
};

} // namespace Nima::Common::System::OS::Diagnostics
