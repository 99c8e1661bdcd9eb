#pragma once

#include "platform/StaticSlot.h"

#include <set>

#include <Diagnostics/NimaTrace.h>

namespace Nima::Common::System::OS::Diagnostics {

/// The name of the device that every tracer writes to.
inline constexpr const wchar_t* kDefaultLogName = L"LogFile";

/// All tracers that have been used, so that they can be bound anew when the default log is created.
class TraceSet {
  public:
    TraceSet();
    TraceSet(const TraceSet&) = delete;
    TraceSet& operator=(const TraceSet&) = delete;
    ~TraceSet();

    void Enter() const;
    bool TryEnter() const;
    void Leave() const;
    // These expect the caller to be inside.
    void Insert(NimaTrace* tracer) { tracers_.insert(tracer); }
    void Remove(NimaTrace* tracer) { tracers_.erase(tracer); }
    const std::set<NimaTrace*>& tracers() const { return tracers_; }

  private:
    void* lock_ = nullptr;
    std::set<NimaTrace*> tracers_;
};

extern StaticSlot<TraceSet> traceSet;

/// The library's own tracer, "Nima.Common.System.OS".
extern StaticSlot<NimaTrace> _TraceFactory;

/// Binds every tracer in use to the device now registered as the default log. It holds the set and waits for
/// each tracer's lock in turn; nobody who holds a tracer's lock waits for the set unconditionally.
void InitTracers();

} // namespace Nima::Common::System::OS::Diagnostics
