/// A host that reads back what it wrote to a ring, for a status page for example.

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <vector>

#include <Diagnostics/RingBufferApi.h>

namespace {

constexpr unsigned long kPaperJam = 7;

/// The ring's records by slot: in the order of writing until the ring is full and starts over. Slots that
/// were never written have the time 0.
std::vector<RingBufferData> ReadRing(TRACE_RING_HANDLE ring) {
    unsigned long bytes = 0;
    GetTraceData(ring, nullptr, 0, &bytes);
    std::vector<RingBufferData> records(bytes / sizeof(RingBufferData));
    GetTraceData(ring, reinterpret_cast<unsigned char*>(records.data()), bytes, nullptr);
    const auto empty = [](const RingBufferData& record) { return record.timestamp == 0; };
    records.erase(std::remove_if(records.begin(), records.end(), empty), records.end());
    return records;
}

} // namespace

int main() {
    TRACE_RING_HANDLE ring = nullptr;
    if (GetTraceRingBuffer(RING_SCAN_ENGINE, &ring) != 0) {
        return 1;
    }
    for (unsigned long page = 1; page <= 3; ++page) {
        WriteEventToRingBuffer(ring, 0, kPaperJam, page, 0, 0, 0);
    }
    for (const RingBufferData& record : ReadRing(ring)) {
        std::printf("%" PRId64 " thread %" PRIu32 ": event %" PRIu32 ", page %" PRIu32 "\n", record.timestamp,
                    record.threadId, record.words[0], record.words[1]);
    }
    return 0;
}
