#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include <Diagnostics/Formats.h>
#include <Diagnostics/Lock.h>

namespace Nima::Common::System::OS::Diagnostics {

/// A ring of 32-byte records over storage that the manager assigns. Writers claim a slot by one atomic
/// increment and take no lock; two that are a whole ring apart may write the same slot. Record words are
/// accessed atomically.
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

    /// Copies the record into the next slot; nothing while there is no storage.
    void WriteData(const RingBufferData& record);
    /// Zeroes the records and starts at slot 0 again. Writers do not wait for it.
    void EmptyBuffer();
    /// Copies what fits of the records, from slot 0 on.
    void Dump(unsigned char* out, unsigned long length, unsigned long* copied);
    /// Writes heading and records as text, in slot order, up to the first empty slot. Takes no lock.
    void Dump(void* file);

  private:
    RingBufferData* records_ = nullptr;
    std::atomic<std::uint32_t> writeIndex_{0xFFFFFFFF}; ///< of the last written slot, before masking
    std::int32_t entryCount_;
    std::uint32_t mask_;
    LockStruct lock_;
    std::wstring name_;
};

/// Writes the records of a ring as text, at most `count`, up to the first empty slot. Failed writes are
/// passed over.
void WriteRecordsAsText(const RingBufferData* records, std::uint32_t count, void* file);

} // namespace Nima::Common::System::OS::Diagnostics
