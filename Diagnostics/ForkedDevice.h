#pragma once

#include <Diagnostics/TraceDevice.h>

namespace Nima::Common::System::OS::Diagnostics {

/// A device while its process forks.
class ForkedDevice {
  public:
    explicit ForkedDevice(CBaseTraceDevice& device) : device_(device) {}

    LockStruct& lock() { return device_.lock_; }
    /// Under the lock, before the fork: writes buffered lines to the file, so that they are not in both
    /// processes.
    void WriteOut();
    /// In the child, where the lock could not be had: gives up what another thread may have been at.
    void StartAfresh();

  private:
    CBaseTraceDevice& device_;
};

} // namespace Nima::Common::System::OS::Diagnostics
