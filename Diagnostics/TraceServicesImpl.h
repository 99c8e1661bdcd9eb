#pragma once

#include "platform/StaticSlot.h"

#include <Diagnostics/Lock.h>
#include <Diagnostics/Types.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Holds the one reference on the default log that the process's services own. Its end gives that reference
/// back.
class TraceServicesImpl final : public LockStruct {
  public:
    TraceServicesImpl() = default;
    ~TraceServicesImpl() override;

    /// As `TraceServices::ConfigureDefaultLog`. The handle held before is overwritten, not given back.
    int Configure(_TraceConfig* config);
    /// As `TraceServices::ReleaseDefaultLog`.
    int ReleaseHeld();

  private:
    TRACE_DEVICE_HANDLE defaultLog_ = nullptr;
};

extern StaticSlot<TraceServicesImpl> gConfigHelper;

} // namespace Nima::Common::System::OS::Diagnostics
