#pragma once

#include "platform/Cancellation.h"
#include "platform/Pause.h"

namespace Nima::Common::System::OS::Diagnostics {

/// Takes a lock that many threads take in turn and hold only for a moment, for a line for instance. Handing
/// it over through the kernel costs both threads many times what either does under it. A caller that finds
/// the lock taken therefore looks again a few times, then pauses up to three times, and only then queues up.
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
    const CancellationDelay delay; // taking a lock must not become a cancellation point
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
