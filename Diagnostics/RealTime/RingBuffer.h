#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>

#include <Diagnostics/Formats.h>
#include <Diagnostics/Lock.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace detail {

/// A record as the eight words in which it is shared.
inline std::uint32_t* WordsOf(const RingBufferData* record) {
    void* const words = const_cast<RingBufferData*>(record);
    return static_cast<std::uint32_t*>(words);
}

inline void StoreWord(std::uint32_t& word, std::uint32_t value) {
    std::atomic_ref<std::uint32_t>(word).store(value, std::memory_order_relaxed);
}

/// Stores word by word from registers. A copy through memory would wait for the wider stores before it.
inline void StoreRecord(RingBufferData* slot, const RingBufferData& record) {
    std::uint32_t* const words = WordsOf(slot);
    const auto time = static_cast<std::uint64_t>(record.timestamp);
    StoreWord(words[0], static_cast<std::uint32_t>(time));
    StoreWord(words[1], static_cast<std::uint32_t>(time >> 32));
    StoreWord(words[2], record.threadId);
    StoreWord(words[3], record.words[0]);
    StoreWord(words[4], record.words[1]);
    StoreWord(words[5], record.words[2]);
    StoreWord(words[6], record.words[3]);
    StoreWord(words[7], record.words[4]);
}

} // namespace detail

/// A ring of 32-byte records over storage that the manager assigns. Writers claim a slot with one atomic
/// increment and take no lock; two writers that are a whole ring apart may write the same slot. Record words
/// are accessed atomically.
class CRingBuffer {
  public:
    /// `entries` is a power of two.
    CRingBuffer(int entries, std::wstring name);
    CRingBuffer(const CRingBuffer&) = delete;
    CRingBuffer& operator=(const CRingBuffer&) = delete;

    void AssignStorage(RingBufferData* records) { records_ = records; }
    int entryCount() const { return entryCount_; }
    /// Exact comparison.
    bool CheckName(const wchar_t* name) const { return name_ == name; }

    /// Copies the record into the next slot; does nothing while there is no storage. It is inline, with its
    /// loads before the increment, so that nothing has to be waited for between the increment and the stores.
    /// The increment orders nothing else, since the index says nothing about what is in the slots: no
    /// barriers on ARM.
    void WriteData(const RingBufferData& record) {
        RingBufferData* const records = records_;
        if (records == nullptr) {
            return;
        }
        const std::uint32_t mask = mask_;
        RingBufferData& slot = records[(writeIndex_.fetch_add(1, std::memory_order_relaxed) + 1) & mask];
        detail::StoreRecord(&slot, record);
    }
    /// Zeroes the records and restarts at slot 0. Does not wait for writers.
    void EmptyBuffer();
    /// Copies as many records as fit, from slot 0 on.
    void Dump(unsigned char* out, unsigned long length, unsigned long* copied);
    /// Writes heading and records as text, in slot order, up to the first empty slot. Takes no lock.
    void Dump(void* file);

    /// In the child of a fork.
    void RenewLock() { lock_.Renew(); }

  private:
    /// At least as large as what the processors this runs on fetch, and take from each other, as a unit.
    static constexpr std::size_t kCacheLine = 64;

    RingBufferData* records_ = nullptr;
    /// Index of the last written slot, before masking. It has a cache line of its own: writers that take it
    /// from each other would otherwise take along what they only read.
    alignas(kCacheLine) std::atomic<std::uint32_t> writeIndex_{0xFFFFFFFF};
    alignas(kCacheLine) std::int32_t entryCount_;
    std::uint32_t mask_;
    LockStruct lock_;
    std::wstring name_;
};

/// Writes at most `count` records of a ring as text, up to the first empty slot. Failed writes are ignored.
void WriteRecordsAsText(const RingBufferData* records, std::uint32_t count, void* file);

} // namespace Nima::Common::System::OS::Diagnostics
