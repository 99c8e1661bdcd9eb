#pragma once

#include <list>
#include <memory>
#include <string>

#include <Diagnostics/TraceDevice.h>

namespace Nima::Common::System::OS::Diagnostics {

class GatheredWrites;

/// The most recent lines, kept in memory and written to a file on request; a configuration record of type 3
/// creates one. A full queue drops its oldest line. Records are accepted from construction on; `Init` only
/// configures, so a creation never fails.
///
/// As with the log file, the accessors do not set what is in effect. The queue's depth is that of
/// `SetQueueDepth` (initially 1000 records), never that of the configuration record; the file name and the
/// mode are those of the record, never those of `SetFileName` and `SetMode`.
class NIMA_DIAGNOSTICS_API CMemoryQueue final : public CBaseTraceDevice {
  public:
    CMemoryQueue();
    /// Frees the queue without writing it, even with mode bit 1; so does the last release. Flush or close the
    /// device before that. No other thread may be using it.
    ~CMemoryQueue() override;

    /// Closes the device (see `Close`), then takes the settings of a record of type 3; any other record, or
    /// none, keeps the current ones. From then on the device counts as open, for good.
    void Init(_TraceConfig* config) override;
    /// Empties the queue; with mode bit 1 it is first written out.
    void Close() override;
    /// Queues a line with the local time and the calling thread. Ignores a null pointer and a length of 0
    /// or less.
    void WriteData(unsigned char* text, int length) override;
    /// Queues bytes, which `Flush` writes as they are.
    void WriteDataRaw(unsigned char* data, int length) override;
    /// Does nothing.
    void WritePreFormattedMessage(char* header, int headerLength, unsigned char* data,
                                  int dataLength) override;
    using CBaseTraceDevice::Flush;
    /// Replaces the file's content with the queue, oldest record first, and empties the queue. A text record
    /// begins with the date form of the header and gets no line end. If the file cannot be opened (on ARM,
    /// also if it is a symbolic link), the records stay queued.
    void Flush() override;

    /// No accessor takes the lock.
    virtual long GetQueueDepth();
    /// Sets the depth in records, effective at once. 0 or less keeps nothing.
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
    // The caller must hold the lock for these.
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
