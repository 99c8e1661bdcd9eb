#pragma once

#include "platform/OwnedLock.h"

#include <Diagnostics/TraceDevice.h>

namespace Nima::Common::System::OS::Diagnostics {

/// What a tracer has and a line needs.
struct TracerBelongings {
    ITraceDevice* device = nullptr; ///< with a reference; may be null
    char* name = nullptr;
    char* buffer = nullptr;

    /// Flushes and gives back, frees.
    void Release() const;
};

/// The lock of a tracer. It outlives the tracer and is never torn down, so that threads that still write
/// through a static tracer while the process exits find a lock that works and, under it, a tracer that is no
/// longer bound. A later tracer may get the same lock: whoever comes too late then only waits for a line of
/// somebody else's.
///
/// Hosts take it by `lock`, writers by `ForWriter`, which leaves out the mark of who holds it.
class alignas(64) TracerLock : public OwnedLock { // a cache line each: writers of two tracers do not meet
  public:
    constexpr TracerLock() = default;

    StaticLockStruct& ForWriter() { return *this; }

    /// A lock for a tracer to be. May throw `std::bad_alloc`.
    static TracerLock* Take();
    /// Gives the lock of a tracer back that is unbound and has nothing any more.
    static void GiveBack(TracerLock* lock);
    /// The same for a tracer that somebody is still inside. What it had is released by `Sweep`.
    static void GiveBackLater(TracerLock* lock, const TracerBelongings& belongings);
    /// Sees to what was given back for later and has come free.
    static void Sweep();

  private:
    static TracerLock* NextThatCameFree();

    TracerLock* next_ = nullptr;
    TracerBelongings belongings_;
};

} // namespace Nima::Common::System::OS::Diagnostics
