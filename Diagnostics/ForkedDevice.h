#pragma once

#include <Diagnostics/TraceDevice.h>

namespace Nima::Common::System::OS::Diagnostics {

/// A device while its process forks.
class ForkedDevice {
  public:
    explicit ForkedDevice(CBaseTraceDevice& device) : device_(device) {}

    LockStruct& lock() { return device_.lock_; }
    /// Under the lock, before the fork: writes buffered lines to the file, so that the child has no copy of
    /// them.
    void WriteOut();
    /// In the child, if the lock was not available: discards what another thread may have been changing.
    void StartAfresh();

  private:
    CBaseTraceDevice& device_;
};

} // namespace Nima::Common::System::OS::Diagnostics
