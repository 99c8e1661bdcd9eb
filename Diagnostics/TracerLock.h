#pragma once

#include "platform/OwnedLock.h"

#include <Diagnostics/TraceDevice.h>

namespace Nima::Common::System::OS::Diagnostics {

/// What belongs to a tracer and is needed for a line.
struct TracerBelongings {
    ITraceDevice* device = nullptr; ///< with a reference; may be null
    char* name = nullptr;
    char* buffer = nullptr;

    /// Flushes and releases the device, and frees the rest.
    void Release() const;
};

/// The lock of a tracer. It outlives the tracer and is never destroyed, so that threads that still write
/// through a static tracer while the process exits find a working lock and, under it, a tracer that is no
/// longer bound. A later tracer may get the same lock; a late writer then only waits for a line of that
/// tracer.
///
/// Hosts take it with `lock`, writers with `ForWriter`, which does not record the holder.
class alignas(64) TracerLock
    : public OwnedLock { // a cache line each: writers of two tracers do not interfere
  public:
    constexpr TracerLock() = default;

    StaticLockStruct& ForWriter() { return *this; }

    /// A lock for a new tracer. May throw `std::bad_alloc`.
    static TracerLock* Take();
    /// Gives back the lock of a tracer that is unbound and owns nothing any more.
    static void GiveBack(TracerLock* lock);
    /// The same for a tracer that some thread is still inside. `Sweep` releases what it had.
    static void GiveBackLater(TracerLock* lock, const TracerBelongings& belongings);
    /// Releases what `GiveBackLater` left, if its lock has come free.
    static void Sweep();

    /// For a fork: the lock that guards the pool of these locks.
    static StaticLockStruct& KeepersLock();
    /// In the child of a fork: makes all of them free except those of the calling thread. Under these locks,
    /// an unfinished line of another thread harms nobody.
    static void RenewAll();

  private:
    static TracerLock* NextThatCameFree();

    TracerLock* next_ = nullptr;
    TracerBelongings belongings_;
};

} // namespace Nima::Common::System::OS::Diagnostics
