#pragma once

#include "platform/StaticSlot.h"

#include <Diagnostics/Lock.h>
#include <Diagnostics/Types.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Holds the one reference to the default log that belongs to the process's services, and releases it at its
/// end.
class TraceServicesImpl final : public LockStruct {
  public:
    TraceServicesImpl() = default;
    ~TraceServicesImpl() override;

    /// The same as `TraceServices::ConfigureDefaultLog`. The handle held before is overwritten, not released.
    int Configure(_TraceConfig* config);
    /// The same as `TraceServices::ReleaseDefaultLog`.
    int ReleaseHeld();

  private:
    TRACE_DEVICE_HANDLE defaultLog_ = nullptr;
};

extern StaticSlot<TraceServicesImpl> gConfigHelper;

} // namespace Nima::Common::System::OS::Diagnostics
