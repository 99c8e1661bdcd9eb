#pragma once

#include "platform/Handles.h"
#include "platform/StaticSlot.h"

#include <atomic>
#include <set>

#include <Diagnostics/Lock.h>
#include <Diagnostics/NimaTrace.h>

namespace Nima::Common::System::OS::Diagnostics {

/// The name of the device that every tracer writes to.
inline constexpr const wchar_t* kDefaultLogName = L"LogFile";

/// All tracers that have been used, so that they can be rebound when the default log is created. Code inside
/// the set never waits for a tracer's lock.
class TraceSet {
  public:
    TraceSet();
    TraceSet(const TraceSet&) = delete;
    TraceSet& operator=(const TraceSet&) = delete;
    ~TraceSet();

    void Enter() const;
    void Leave() const;
    // The caller of these two must be inside.
    void Insert(NimaTrace* tracer) { tracers_.insert(tracer); }
    void Remove(NimaTrace* tracer) { tracers_.erase(tracer); }

    /// Rebinds every tracer, in order. A tracer whose lock is held for long delays those after it, but it
    /// delays neither first uses nor destructors.
    void RebindAll();
    /// Whether `RebindAll` currently has the tracer and its lock.
    bool IsRebinding(const NimaTrace* tracer) const { return inHand_.load() == tracer; }

    /// For a fork: the locks in their order, and what the child must forget.
    LockStruct& rebinding() { return rebinding_; }
    critical_section_helper& lock() { return *AsCriticalSection(lock_); }
    void ForgetRebinding() { inHand_.store(nullptr); }

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
