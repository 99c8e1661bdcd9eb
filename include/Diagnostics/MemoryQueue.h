#pragma once

#include <list>
#include <memory>
#include <string>

#include <Diagnostics/TraceDevice.h>

namespace Nima::Common::System::OS::Diagnostics {

class GatheredWrites;

/// The most recent lines, kept in memory and written to a file when asked: what a configuration record of
/// type 3 creates. A full queue drops its oldest line. Records are taken from construction on; `Init` only
/// configures, so a creation never fails.
///
/// As with the log file, what the accessors set and what governs are not the same: the queue's depth is
/// that of `SetQueueDepth` (1000 records at first), never that of the configuration record; the file
/// name and the mode are those of the record, never those of `SetFileName` and `SetMode`.
class NIMA_DIAGNOSTICS_API CMemoryQueue final : public CBaseTraceDevice {
  public:
    CMemoryQueue();
    /// Frees what is queued without writing it, also with mode bit 1: so does the last release. Flush or
    /// close the device before. No other thread may be using it.
    ~CMemoryQueue() override;

    /// Closes the device (see `Close`), then takes the settings of a record of type 3; any other record, or
    /// none, keeps those in force. The device counts as open from then on, for good.
    void Init(_TraceConfig* config) override;
    /// Empties the queue; with mode bit 1 it is written out first.
    void Close() override;
    /// Queues a line with the local time and the calling thread. Ignores a null pointer and a length of 0
    /// or less.
    void WriteData(unsigned char* text, int length) override;
    /// Queues bytes that `Flush` writes as they are.
    void WriteDataRaw(unsigned char* data, int length) override;
    /// Does nothing.
    void WritePreFormattedMessage(char* header, int headerLength, unsigned char* data,
                                  int dataLength) override;
    using CBaseTraceDevice::Flush;
    /// Replaces the file's content with the queue, oldest record first, and empties the queue. A text
    /// record gets the date form of the header in front and no line end. When the file cannot be
    /// opened (on ARM: also where it is a symbolic link) the records stay queued.
    void Flush() override;

    /// No accessor takes the lock.
    virtual long GetQueueDepth();
    /// In records, in force at once. 0 or less keeps nothing.
    virtual void SetQueueDepth(long records);
    virtual std::wstring GetFileName();
    virtual void SetFileName(std::wstring name);
    virtual int GetMode();
    virtual void SetMode(int mode);

  private:
    friend class ForkedDevice;

    struct Record {
        std::unique_ptr<unsigned char[]> bytes;
        std::size_t capacity = 0;
    };
    using Queue = std::list<Record>;

    Queue TakeRecordFor(std::size_t size);
    void Append(Queue& record);
    // These expect the caller to hold the lock.
    void FlushLocked();
    void CloseLocked();
    void AddRecord(GatheredWrites& output, const Record& record);

    std::int32_t configuredQueueDepth_ = 0; ///< stored and never read
    std::atomic<std::int32_t> queueDepth_{1000};
    std::wstring fileName_;
    std::wstring propertyFileName_; ///< stored and never read
    std::int32_t mode_ = 0;
    std::int32_t propertyMode_ = 0; ///< stored and never read
    Queue queue_;                   ///< oldest first
};

} // namespace Nima::Common::System::OS::Diagnostics
