#pragma once

#include "platform/StaticSlot.h"

#include <atomic>
#include <set>

#include <Diagnostics/Lock.h>
#include <Diagnostics/NimaTrace.h>

namespace Nima::Common::System::OS::Diagnostics {

/// The name of the device that every tracer writes to.
inline constexpr const wchar_t* kDefaultLogName = L"LogFile";

/// All tracers that have been used, so that they can be bound anew when the default log is created. Whoever
/// is inside never waits for a tracer's lock.
class TraceSet {
  public:
    TraceSet();
    TraceSet(const TraceSet&) = delete;
    TraceSet& operator=(const TraceSet&) = delete;
    ~TraceSet();

    void Enter() const;
    void Leave() const;
    // These two expect the caller to be inside.
    void Insert(NimaTrace* tracer) { tracers_.insert(tracer); }
    void Remove(NimaTrace* tracer) { tracers_.erase(tracer); }

    /// Binds every tracer anew, in order. One whose lock is held for long holds up those that follow, but
    /// neither tracers that come nor tracers that go.
    void RebindAll();
    /// Whether `RebindAll` has the tracer, and its lock, in hand.
    bool IsRebinding(const NimaTrace* tracer) const { return inHand_.load() == tracer; }

  private:
    class Hand;
    bool TakeNext(NimaTrace*& tracer);

    LockStruct rebinding_;
    void* lock_ = nullptr;
    std::set<NimaTrace*> tracers_;
    std::atomic<NimaTrace*> inHand_{nullptr};
};

extern StaticSlot<TraceSet> traceSet;

/// The library's own tracer, "Nima.Common.System.OS".
extern StaticSlot<NimaTrace> _TraceFactory;

/// Binds every tracer in use to the device now registered as the default log.
void InitTracers();

} // namespace Nima::Common::System::OS::Diagnostics
