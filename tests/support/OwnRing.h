#pragma once

#include <vector>

#include <Diagnostics/RingBufferApi.h>

namespace Nima::Testing {

/// Takes the records out of the library's own ring, and builds the rings if there are none.
inline std::vector<RingBufferData> TakeInternalEvents() {
    TRACE_RING_HANDLE ring = nullptr;
    GetTraceRingBuffer(RING_PLATFORM, &ring);
    std::vector<RingBufferData> records(512);
    unsigned long copied = 0;
    GetTraceData(ring, reinterpret_cast<unsigned char*>(records.data()),
                 records.size() * sizeof(RingBufferData), &copied);
    EmptyRingBuffer(ring);
    std::erase_if(records, [](const RingBufferData& record) { return record.timestamp == 0; });
    return records;
}

} // namespace Nima::Testing
