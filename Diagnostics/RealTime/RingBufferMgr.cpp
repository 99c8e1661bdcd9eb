#include "Diagnostics/RealTime/RingBufferMgr.h"

#include "Diagnostics/Guarded.h"
#include "Diagnostics/RealTime/TraceMemory.h"
#include "catalogue/Files.h"
#include "catalogue/Rings.h"
#include "platform/Clock.h"
#include "platform/Handles.h"

#include <cerrno>
#include <cstdint>
#include <memory>
#include <mutex>

#include <unistd.h>

namespace Nima::Common::System::OS::Diagnostics {

static_assert(Catalogue::kOwnRing == RING_PLATFORM);

constinit std::atomic<CRingBuffer*> g_OSRing{nullptr};
constinit StaticLockStruct g_RingBufferMgrLock;

namespace {

constinit std::atomic<CRingBufferMgr*> g_RingBufferMgr{nullptr};

int TotalEntries() {
    int total = 0;
    for (const Catalogue::RingRow& ring : Catalogue::kRings) {
        total += static_cast<int>(ring.entries);
    }
    return total;
}

/// The records in whole pages, and one page for the directory.
int SegmentSize(int recordBytes) {
    const int pages = (recordBytes + RING_DIRECTORY_SIZE - 1) / RING_DIRECTORY_SIZE + 1;
    return pages * RING_DIRECTORY_SIZE;
}

// Another process may be reading the directory.
void StoreShared(std::uint32_t& word, std::uint32_t value) {
    std::atomic_ref<std::uint32_t>(word).store(value, std::memory_order_relaxed);
}

CRingBuffer* AsRing(TRACE_RING_HANDLE handle) {
    void* const ring = handle;
    return static_cast<CRingBuffer*>(ring);
}

TRACE_RING_HANDLE AsHandle(CRingBuffer* ring) {
    void* const handle = ring;
    return static_cast<TRACE_RING_HANDLE>(handle);
}

} // namespace

CRingBufferMgr::CRingBufferMgr() : handle_(InvalidHandle()) {
    Init();
}

void CRingBufferMgr::Init() {
    if (recordsBase_ != nullptr) {
        return;
    }
    rings_.resize(RING_COUNT);
    for (int i = 0; i < RING_COUNT; ++i) {
        const Catalogue::RingRow& row = Catalogue::kRings[static_cast<std::size_t>(i)];
        rings_[static_cast<std::size_t>(i)] = std::make_unique<CRingBuffer>(
            static_cast<int>(row.entries), std::wstring(row.name.begin(), row.name.end()));
    }
    const int recordBytes = TotalEntries() * RING_RECORD_SIZE;
    const int size = SegmentSize(recordBytes);
    CreateMemorySegment(Catalogue::kRingSegment.wide, size, &handle_, &view_);
    auto* const directory = static_cast<RingDirectory*>(view_);
    if (directory != nullptr) {
        void* const records = directory + 1;
        recordsBase_ = static_cast<RingBufferData*>(records);
        StoreShared(directory->processId, static_cast<std::uint32_t>(::getpid()));
        StoreShared(directory->segmentSize, static_cast<std::uint32_t>(size));
    } else {
        recordsBase_ = new RingBufferData[static_cast<std::size_t>(TotalEntries())]();
    }
    RingBufferData* records = recordsBase_;
    for (int i = 0; i < RING_COUNT; ++i) {
        CRingBuffer* const ring = rings_[static_cast<std::size_t>(i)].get();
        ring->AssignStorage(records);
        if (directory != nullptr) {
            StoreShared(directory->entryCounts[i], static_cast<std::uint32_t>(ring->entryCount()));
        }
        records += ring->entryCount();
    }
    g_OSRing.store(rings_[Catalogue::kOwnRing].get(), std::memory_order_release);
}

int CRingBufferMgr::GetRingBuffer(int index, CRingBuffer** out) const {
    if (index < 0 || static_cast<std::size_t>(index) >= rings_.size()) {
        return EINVAL;
    }
    *out = rings_[static_cast<std::size_t>(index)].get();
    return 0;
}

int CRingBufferMgr::GetRingBufferId(const wchar_t* name, int* id) const {
    if (name == nullptr || id == nullptr || rings_.empty()) {
        return EINVAL;
    }
    for (std::size_t i = 0; i < rings_.size(); ++i) {
        if (rings_[i]->CheckName(name)) {
            *id = static_cast<int>(i);
            return 0;
        }
    }
    return EINVAL;
}

CRingBufferMgr& GetRingBufferMgr() {
    CRingBufferMgr* manager = g_RingBufferMgr.load(std::memory_order_acquire);
    if (manager == nullptr) {
        const std::lock_guard guard(g_RingBufferMgrLock);
        manager = g_RingBufferMgr.load(std::memory_order_relaxed);
        if (manager == nullptr) {
            manager = new CRingBufferMgr;
            g_RingBufferMgr.store(manager, std::memory_order_release);
        }
    }
    return *manager;
}

void RenewRingLocks() {
    if (const CRingBufferMgr* const manager = g_RingBufferMgr.load(std::memory_order_acquire)) {
        for (int i = 0; i < RING_COUNT; ++i) {
            CRingBuffer* ring = nullptr;
            if (manager->GetRingBuffer(i, &ring) == 0) {
                ring->RenewLock();
            }
        }
    }
}

int RecordInternalDiagnosticEvent(_OSDiagnosticEvents code, int a, int b, int c, int d) {
    const auto word = [](int value) { return static_cast<unsigned long>(value); };
    return WriteEventToRingBuffer(AsHandle(g_OSRing.load(std::memory_order_acquire)), CurrentThreadId(),
                                  word(code), word(a), word(b), word(c), word(d));
}

} // namespace Nima::Common::System::OS::Diagnostics

using namespace Nima::Common::System::OS::Diagnostics;

int GetTraceRingBuffer(int index, TRACE_RING_HANDLE* out) {
    if (out == nullptr) {
        return EINVAL;
    }
    return Guarded(EINVAL, [=] {
        CRingBuffer* ring = nullptr;
        const int result = GetRingBufferMgr().GetRingBuffer(index, &ring);
        if (result == 0) {
            *out = AsHandle(ring);
        }
        return result;
    });
}

int GetTraceRingBufferId(const wchar_t* name, int* id) {
    return Guarded(EINVAL, [=] { return GetRingBufferMgr().GetRingBufferId(name, id); });
}

int WriteDataToRingBuffer(TRACE_RING_HANDLE ring, const RingBufferData* record) {
    if (ring == nullptr || record == nullptr) {
        return EINVAL;
    }
    AsRing(ring)->WriteData(*record);
    return 0;
}

// As with a record of the binary trace, its stack holds no array.
__attribute__((no_stack_protector)) int WriteEventToRingBuffer(TRACE_RING_HANDLE ring, unsigned long thread,
                                                               unsigned long code, unsigned long a,
                                                               unsigned long b, unsigned long c,
                                                               unsigned long d) {
    if (ring == nullptr) {
        return EINVAL;
    }
    const auto word = [](unsigned long value) { return static_cast<std::uint32_t>(value); };
    _LARGE_INTEGER now;
    _query_performance_counter_helper(&now);
    const RingBufferData record{now.QuadPart,
                                thread != 0 ? word(thread) : CurrentThreadId(),
                                {word(code), word(a), word(b), word(c), word(d)}};
    AsRing(ring)->WriteData(record);
    return 0;
}

int EmptyRingBuffer(TRACE_RING_HANDLE ring) {
    if (ring == nullptr) {
        return EINVAL;
    }
    AsRing(ring)->EmptyBuffer();
    return 0;
}

int EmptyAllRingBuffers(void) {
    int result = 0;
    for (int i = 0; i < RING_COUNT; ++i) {
        TRACE_RING_HANDLE ring = nullptr;
        result = GetTraceRingBuffer(i, &ring);
        if (result == 0) {
            result = EmptyRingBuffer(ring);
        }
    }
    return result;
}

int GetTraceData(TRACE_RING_HANDLE ring, unsigned char* out, unsigned long length, unsigned long* copied) {
    if (ring == nullptr) {
        return EINVAL;
    }
    unsigned long count = 0;
    if (length != 0 && out != nullptr) {
        AsRing(ring)->Dump(out, length, &count);
    } else {
        count = static_cast<unsigned long>(AsRing(ring)->entryCount()) * RING_RECORD_SIZE;
    }
    if (copied != nullptr) {
        *copied = count;
    }
    return 0;
}

int IsARM(void) {
    return 0;
}
