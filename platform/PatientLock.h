#pragma once

#include "platform/Cancellation.h"
#include "platform/Pause.h"

namespace Nima::Common::System::OS::Diagnostics {

/// Takes a lock that is held for a moment at a time but by many threads in turn, with lines for instance.
/// Handing it over through the kernel costs the giver and the taker many times what either does under it, so
/// whoever finds it taken looks again a few times, then keeps out of the way for a moment or three, and only
/// then queues up.
template <class Lockable>
[[gnu::noinline, gnu::cold]] void TakePatiently(Lockable& lock) {
    constexpr int kLooks = 3;
    constexpr int kRelaxations = 20;
    constexpr int kPauses = 3;
    for (int look = 0; look < kLooks; ++look) {
        for (int i = 0; i < kRelaxations; ++i) {
            RelaxProcessor();
        }
        if (lock.try_lock()) {
            return;
        }
    }
    const CancellationDelay delay; // taking a lock is no point where a thread is cancelled
    for (int pause = 0; pause < kPauses; ++pause) {
        BriefPause();
        if (lock.try_lock()) {
            return;
        }
    }
    lock.lock();
}

/// Holds such a lock until the end of its scope.
template <class Lockable>
class PatientGuard {
  public:
    explicit PatientGuard(Lockable& lock) : lock_(lock) {
        if (!lock_.try_lock()) {
            TakePatiently(lock_);
        }
    }
    PatientGuard(const PatientGuard&) = delete;
    PatientGuard& operator=(const PatientGuard&) = delete;
    ~PatientGuard() { lock_.unlock(); }

  private:
    Lockable& lock_;
};

} // namespace Nima::Common::System::OS::Diagnostics
