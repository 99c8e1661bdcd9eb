#pragma once

#include "catalogue/SysTrace.h"
#include "platform/Clock.h"
#include "platform/Handles.h"

#include <atomic>
#include <cstdint>

#include <Diagnostics/Formats.h>
#include <Diagnostics/RealTimeTraceApi.h>

namespace Nima::Common::System::OS::Diagnostics {

/// A 32-bit word of memory that other threads and processes write as well.
using SharedWord = std::atomic_ref<std::uint32_t>;

/// States of the capture word. The library writes neither of the last two; other processes may.
enum class SysTraceState : std::uint32_t {
    kTracing = Catalogue::kTracing,
    kTriggered = Catalogue::kTriggered,
    kTriggerPending = Catalogue::kTriggerPending,
    kCapturing = Catalogue::kCapturing
};

/// A 256-byte header followed by a block of 8-byte entries (doc/systrace.md). Writers claim each entry with
/// one atomic increment and take no lock; every process that maps the block shares header, filter and state.
/// All its words are accessed atomically. The constructor formats a block whose header is not marked as
/// formatted.
class SysTraceBuffer {
  public:
    /// A private block of 33,024 bytes, freed at the end.
    SysTraceBuffer();
    /// A block of the caller's, of at least 256 bytes and 4-byte aligned; writers need at least 512. The
    /// index mask is derived from `size`, never from an adopted header, so no header can lead a writer out of
    /// the block.
    SysTraceBuffer(unsigned char* buffer, long size, bool useHardware);
    SysTraceBuffer(const SysTraceBuffer&) = delete;
    SysTraceBuffer& operator=(const SysTraceBuffer&) = delete;
    ~SysTraceBuffer();

    /// Whether a block's header is marked as formatted. If so, all of it is.
    static bool IsFormatted(unsigned char* block);
    /// The largest power of two of entries that fits; 0 below 512 bytes.
    static int CalculateMaxEntries(int size);
    void GetBuffer(unsigned char** out) const { *out = memory_; }

    /// Whether the id's component traces at the id's level. Bit 31 is ignored.
    bool FilterTrace(std::uint32_t id) const {
        // Level and component are adjacent in the id: the upper four of their bits number the word, the
        // others the bit.
        static_assert(Catalogue::FilterWord(2, 77) == ((2U << 7U | 77U) >> 5U) &&
                      Catalogue::FilterBit(77) == UINT32_C(0x80000000) >> (77U & 31U));
        const std::uint32_t index = id >> (SYSTRACE_COMPONENT_SHIFT + 5) & 15;
        const std::uint32_t bit = id >> SYSTRACE_COMPONENT_SHIFT & 31;
        const std::uint32_t word = SharedWord(filter_[index]).load(std::memory_order_relaxed);
        return (word << bit & UINT32_C(0x80000000)) != 0;
    }

    /// Writes a record, whatever the filter: the id with its time, the arguments, the thread.
    template <class... Words>
    void Record(std::uint32_t id, Words... arguments) {
        SysTraceEntry& first = Claim();
        Store(first.id, id & ~SYSTRACE_CONTINUATION);
        Store(first.value, Timestamp());
        const std::uint32_t continued = id | SYSTRACE_CONTINUATION;
        (StoreEntry(continued, arguments), ...);
        if (threadRecords_) {
            StoreEntry(continued, CurrentThreadId());
        }
    }

    /// Both report through `errno`: 0, or EINVAL for a level above 4. Level 4 changes the saved filter, and a
    /// component of 128 or more the next level's words.
    void SetComponentLevel(unsigned char component, unsigned char level);
    void SetAllLevel(unsigned char level, bool on);

    /// Returns 0 and does nothing.
    int Trigger(SysTraceState state);
    /// Ends a capture by trigger: state 2 becomes 1, and the saved filter is live again. Otherwise returns
    /// false with `errno` EOPNOTSUPP; state 1 has then become 2.
    bool ResetTrigger();
    /// Pauses tracing in state 1 by saving and clearing the filter. Returns false with `errno` EOPNOTSUPP if
    /// a capture cannot begin; a state of 4 has then become 1. Begin and end are paired on the same object.
    bool BeginTraceCapture();
    bool EndTraceCapture();

    /// Stops all tracing by moving the live filter into the saved one.
    void Disable();
    /// Empties the buffer by resetting its indices; the entries stay.
    void ResetBuffer();
    void Clear();

    /// Dumps to a file or a callback, see `DumpSysTrace`. Defined beside the other entry points, with which
    /// they trace.
    void Dump(const wchar_t* path, int backups);
    void Dump(SysTraceDumpCallback callback, void* context);

  private:
    static void Store(std::uint32_t& word, std::uint32_t value) {
        SharedWord(word).store(value, std::memory_order_relaxed);
    }
    static std::uint32_t Load(std::uint32_t& word) {
        return SharedWord(word).load(std::memory_order_relaxed);
    }

    SysTraceEntry& Claim() {
        const std::uint32_t slot = (SharedWord(*writeIndex_).fetch_add(1) + 1) & mask_;
        if (slot == 0) {
            CountWrap();
        }
        return entries_[slot];
    }
    void StoreEntry(std::uint32_t id, std::uint32_t value) {
        SysTraceEntry& entry = Claim();
        Store(entry.id, id);
        Store(entry.value, value);
    }
    /// The same as `ReadQPC32` if there is no register to read.
    std::uint32_t Timestamp() const {
        if (timerRegister_ != nullptr) {
            return *timerRegister_;
        }
        _LARGE_INTEGER counter;
        _query_performance_counter_helper(&counter);
        return static_cast<std::uint32_t>(counter.QuadPart);
    }

    void CountWrap();
    void CommonSetup();
    void SetupHeader();
    void AdoptHeader();
    void LoadFilterData();
    void RecalculateBufferSize();
    void FetchHardwareRegisters();
    std::uint32_t& WrapCount();
    bool SwapState(std::uint32_t from, std::uint32_t to, std::uint32_t expectedResult);
    void SaveFilter();
    void RestoreFilter();
    long long DumpLength();
    SysTraceDumpHeader DumpHeader() const;
    void WriteBlock(void* file, const wchar_t* path);
    void PassBlock(SysTraceDumpCallback callback, void* context);

    SysTraceEntry* entries_ = nullptr;
    unsigned char* memory_ = nullptr;
    std::uint32_t* writeIndex_ = nullptr;
    SysTraceHeader* header_ = nullptr;
    std::int32_t bufferSize_ = 0;
    std::int32_t entryCount_ = 0;
    std::uint32_t mask_ = 0;
    const volatile std::uint32_t* timerRegister_ = nullptr;
    std::uint32_t hardwareRegister1_ = 0;
    std::uint32_t hardwareRegister2_ = 0;
    bool threadRecords_ = false;
    std::uint32_t* filter_ = nullptr; ///< the live filter's words, followed by those of the saved filter
    [[maybe_unused]] std::int32_t reservedWord_ = -1;
    unsigned char reservedByte_ = 0;
    bool restoreStateOnEnd_ = false;
    bool filterSaved_ = false;
    bool ownsMemory_ = false;
    std::int32_t memorySize_ = 0; ///< how much of the block may be read, whatever its header says
};

} // namespace Nima::Common::System::OS::Diagnostics
