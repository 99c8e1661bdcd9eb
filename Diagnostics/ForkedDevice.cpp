#include "Diagnostics/ForkedDevice.h"

#include <new>

#include <Diagnostics/MemoryQueue.h>
#include <Diagnostics/RollingLogFile.h>

namespace Nima::Common::System::OS::Diagnostics {

void ForkedDevice::WriteOut() {
    auto* const log = dynamic_cast<CRollingLogFile*>(&device_);
    if (log != nullptr && log->HasFile()) {
        log->FlushBigBuffer();
    }
}

void ForkedDevice::StartAfresh() {
    if (auto* const log = dynamic_cast<CRollingLogFile*>(&device_)) {
        log->writeBufferFill_ = 0; // the parent's lines
    } else if (auto* const queue = dynamic_cast<CMemoryQueue*>(&device_)) {
        new (&queue->queue_) CMemoryQueue::Queue; // not cleared: its links may be in the middle of a change
    }
}

} // namespace Nima::Common::System::OS::Diagnostics
