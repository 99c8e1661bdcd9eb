#include "Diagnostics/RealTime/RealTimeTrace.h"

#include "Diagnostics/Guarded.h"
#include "Diagnostics/RealTime/TraceMemory.h"
#include "platform/Files.h"

#include <cerrno>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>

namespace Nima::Common::System::OS::Diagnostics {

constinit std::atomic<SysTraceBuffer*> g_RTTrace{nullptr};
constinit StaticLockStruct g_SysTraceLock;

namespace {

/// The live buffer for a writer. A writer reaches everything it reads through this pointer, and none of the
/// processors this runs on reads through a pointer before it has read the pointer itself. So no barrier is
/// needed; on ARM it would cost a filtered call more than everything else. The thread sanitizer does not know
/// of such dependencies.
inline SysTraceBuffer* BufferForWriting() {
#ifdef __SANITIZE_THREAD__
    return g_RTTrace.load(std::memory_order_acquire);
#else
    return g_RTTrace.load(std::memory_order_relaxed);
#endif
}

/// The rest of a call that the filter has let through. It has the parameters of the entry points, so that
/// they can jump here and a filtered call sets up nothing. Its stack holds only what the clock fills in, and
/// no array that could be overrun.
template <class... Words>
__attribute__((noinline, no_stack_protector)) void RecordUnfiltered(unsigned long id, Words... arguments) {
    if (SysTraceBuffer* const buffer = BufferForWriting()) {
        buffer->Record(static_cast<std::uint32_t>(id), static_cast<std::uint32_t>(arguments)...);
    }
}

template <class... Words>
inline void Trace(unsigned long id, Words... arguments) {
    const SysTraceBuffer* const buffer = BufferForWriting();
    if (buffer != nullptr && buffer->FilterTrace(static_cast<std::uint32_t>(id))) {
        RecordUnfiltered(id, arguments...);
    }
}

/// A buffer over the segment. If several processes come at once, one of them formats it. A caller that finds
/// it unformatted holds `g_SysTraceLock`, which does the same for threads; a formatted segment needs no lock.
SysTraceBuffer BufferOverSegment(const TraceMemory& memory, bool useHardware) {
    constexpr int kPatience = 2000;
    std::optional<ProcessLock> lock;
    if (!SysTraceBuffer::IsFormatted(memory.buffer())) {
        lock.emplace(memory.handle(), kPatience);
    }
    return SysTraceBuffer(memory.buffer(), memory.size(), useHardware);
}

/// The same for a moment's use by any thread.
SysTraceBuffer TemporaryBuffer(const TraceMemory& memory) {
    std::unique_lock lock(g_SysTraceLock, std::defer_lock);
    if (!SysTraceBuffer::IsFormatted(memory.buffer())) {
        lock.lock();
    }
    return BufferOverSegment(memory, false);
}

void ConfigureFromSegment(unsigned char** out) {
    SysTraceBuffer* live = g_RTTrace.load(std::memory_order_acquire);
    if (live == nullptr) {
        const std::lock_guard guard(g_SysTraceLock);
        live = g_RTTrace.load(std::memory_order_relaxed);
        if (live == nullptr) {
            const TraceMemory* memory = TraceMemory::GetInstance();
            if (memory == nullptr || memory->buffer() == nullptr) {
                return;
            }
            live = new SysTraceBuffer(BufferOverSegment(*memory, true));
            g_RTTrace.store(live, std::memory_order_release);
        }
    }
    if (out != nullptr) {
        live->GetBuffer(out);
    }
}

bool IsUsableBlock(const unsigned char* buffer, long size) {
    return buffer != nullptr && reinterpret_cast<std::uintptr_t>(buffer) % alignof(SysTraceEntry) == 0 &&
           size <= INT32_MAX && size >= 0 && SysTraceBuffer::CalculateMaxEntries(static_cast<int>(size)) > 0;
}

} // namespace

int WithBuffer(const std::function<void(SysTraceBuffer&)>& operation) {
    constexpr int kAppliedToLiveBuffer = 19;
    return Guarded(ENOMEM, [&] {
        if (SysTraceBuffer* live = g_RTTrace.load(std::memory_order_acquire)) {
            operation(*live);
            return kAppliedToLiveBuffer;
        }
        const TraceMemory* memory = TraceMemory::GetInstance();
        if (memory == nullptr || memory->buffer() == nullptr) {
            return ENOMEM;
        }
        SysTraceBuffer temporary = TemporaryBuffer(*memory);
        operation(temporary);
        return 0;
    });
}

} // namespace Nima::Common::System::OS::Diagnostics

using namespace Nima::Common::System::OS::Diagnostics;

void RTTrace(unsigned long id) {
    Trace(id);
}

void RTTrace_1(unsigned long id, unsigned long a1) {
    Trace(id, a1);
}

void RTTrace_2(unsigned long id, unsigned long a1, unsigned long a2) {
    Trace(id, a1, a2);
}

void RTTrace_3(unsigned long id, unsigned long a1, unsigned long a2, unsigned long a3) {
    Trace(id, a1, a2, a3);
}

void RTTrace_4(unsigned long id, unsigned long a1, unsigned long a2, unsigned long a3, unsigned long a4) {
    Trace(id, a1, a2, a3, a4);
}

void RTTrace_5(unsigned long id, unsigned long a1, unsigned long a2, unsigned long a3, unsigned long a4,
               unsigned long a5) {
    Trace(id, a1, a2, a3, a4, a5);
}

void GetRTTraceBuffer(unsigned char** out) {
    GuardedCall([=] { ConfigureFromSegment(out); });
}

void SetRTTraceConfig(unsigned char* buffer, long size) {
    if (!IsUsableBlock(buffer, size)) {
        errno = EINVAL;
        return;
    }
    GuardedCall([=] {
        const std::lock_guard guard(g_SysTraceLock);
        auto fresh = std::make_unique<SysTraceBuffer>(buffer, size, true);
        // Destroyed only after the new one is in place.
        const std::unique_ptr<SysTraceBuffer> replaced(g_RTTrace.exchange(fresh.release()));
    });
}

int SysTraceConfigure(void) {
    GetRTTraceBuffer(nullptr);
    return g_RTTrace.load() != nullptr ? 1 : 0;
}

void* ConfigureSysTrace(void) {
    return Guarded<void*>(nullptr, [] { return static_cast<void*>(TraceMemory::GetInstance()); });
}

void ReleaseSysTrace(void) {
    TraceMemory::Shutdown();
}

int ClearSysTrace(void) {
    return WithBuffer([](SysTraceBuffer& buffer) { buffer.Clear(); });
}

void SysTraceSetComponentLevel(unsigned char component, unsigned char level) {
    if (SysTraceBuffer* live = g_RTTrace.load(std::memory_order_acquire)) {
        live->SetComponentLevel(component, level);
    }
}

void SysTraceSetAllLevel(unsigned char level, bool on) {
    if (SysTraceBuffer* live = g_RTTrace.load(std::memory_order_acquire)) {
        live->SetAllLevel(level, on);
    }
}
