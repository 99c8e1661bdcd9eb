#pragma once

#include <pthread.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Postpones cancellation of the calling thread. Destructors that write or close need it: a cancellation
/// inside one ends the whole process.
class CancellationDelay {
  public:
    CancellationDelay() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before_); }
    CancellationDelay(const CancellationDelay&) = delete;
    CancellationDelay& operator=(const CancellationDelay&) = delete;
    ~CancellationDelay() { pthread_setcancelstate(before_, nullptr); }

  private:
    int before_ = 0;
};

} // namespace Nima::Common::System::OS::Diagnostics
