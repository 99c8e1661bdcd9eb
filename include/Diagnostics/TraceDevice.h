#pragma once

#include <atomic>
#include <cstdint>
#include <string>

#include <Diagnostics/Export.h>
#include <Diagnostics/Lock.h>
#include <Diagnostics/Types.h>

namespace Nima::Common::System::OS::Diagnostics {

class ForkedDevice;

/// An output of the text trace. Tracers and the plain C functions reach devices only through this interface.
/// The order of the virtual functions is fixed.
///
/// Every operation may be called from any thread; none may be called from a signal handler. No write reports
/// to its caller: a line that cannot be written is dropped silently. A device must not call back into the
/// registry (create, find, release, flush all) from `Init`, `Close`, `Flush` or its destructor.
class NIMA_DIAGNOSTICS_API ITraceDevice {
  public:
    virtual ~ITraceDevice() = default;
    /// Configures and opens the device, or does so again. The record is read during the call only and may be
    /// null. On success the device's open flag is set; on failure it is clear and `errno` says why.
    virtual void Init(_TraceConfig* config) = 0;
    /// Closes the output and clears the open flag. A later `Init` reopens it.
    virtual void Close() = 0;
    /// Writes one line of text: the device adds its header in front and the line end.
    virtual void WriteData(unsigned char* text, int length) = 0;
    /// Writes bytes as they are, without a header.
    virtual void WriteDataRaw(unsigned char* data, int length) = 0;
    /// The enabled flag, false for a new device. The library's devices do not check it before they write.
    virtual bool GetEnabled() = 0;
    virtual void SetEnabled(bool enabled) = 0;
    /// Adds one reference; returns the new count.
    virtual int AddRef() = 0;
    /// Releases one reference; returns the new count. At 0 the device has been destroyed.
    virtual int Release() = 0;
    /// A copy of the device's name, "unknown" for a new device.
    virtual std::wstring GetName() = 0;
    virtual void SetName(std::wstring name) = 0;
    /// Writes out what the device holds back.
    virtual void Flush() = 0;
    /// The same; `final` asks the device to hold nothing back from now on.
    virtual void Flush(bool final) = 0;
    /// Writes a header that the caller has built, followed by data.
    virtual void WritePreFormattedMessage(char* header, int headerLength, unsigned char* data,
                                          int dataLength) = 0;
};

/// What all devices share: name, flags, reference count, lock and the header of a line. A device class takes
/// `lock_` around its own operations and calls the header functions only while it holds the lock.
///
/// A new device has 0 references and the name "unknown", is neither enabled nor open, and counts as alive
/// until it is destroyed (`GetTraceDeviceCount`).
class NIMA_DIAGNOSTICS_API CBaseTraceDevice : public ITraceDevice {
    friend class ForkedDevice;

  public:
    CBaseTraceDevice();
    CBaseTraceDevice(const CBaseTraceDevice&) = delete;
    CBaseTraceDevice& operator=(const CBaseTraceDevice&) = delete;
    ~CBaseTraceDevice() override;

    /// Read and written without a lock.
    bool GetEnabled() override;
    void SetEnabled(bool enabled) override;
    /// Both change the count atomically, so references may be taken and released on any thread. The release
    /// that finds a count of exactly 1 destroys the device before it returns 0.
    int AddRef() override;
    int Release() override;
    std::wstring GetName() override;
    void SetName(std::wstring name) override;
    using ITraceDevice::Flush;
    /// Does nothing here.
    void Flush(bool final) override;

    /// Whether the output is open. The registry reads it right after `Init`.
    bool IsOpen() const { return open_.load(std::memory_order_relaxed); }
    /// The name of the device's time source: "rdtsc" for timer type 1, "asic" for 2, "qpc" for any other.
    const char* GetTimerType() const;

    /// The four functions below write a line's header into `headerBuffer_`, cut to 256 bytes including its
    /// terminating zero, and return its length. The date form is "%04d%02d%02d%02d%02d%02d.%03d
    /// <0x%8.8x:%03d> " with the fields of a `_SYSTEMTIME` as they are, each read as a signed 16-bit number
    /// and without the day of the week. The counter form is "%lld <0x%8.8x:%03d> ". After the time come a
    /// thread's identifier, cut to 32 bits, and the scheduling priority of the thread that formats the
    /// header.
    int WriteHeaderDateTime();
    int WriteHeaderCounter();
    int WriteHeader(long long counter, long threadId);
    int WriteHeader(_SYSTEMTIME time, long threadId);

  protected:
    static constexpr int kHeaderSize = 256;

    void SetOpen(bool open) { open_.store(open, std::memory_order_relaxed); }

    std::atomic<bool> open_{false};
    std::atomic<bool> enabled_{false};
    _SYSTEMTIME lastLocalTime_{};  ///< as `WriteHeaderDateTime` last read it
    std::int64_t lastCounter_ = 0; ///< as `WriteHeaderCounter` last read it
    char headerBuffer_[kHeaderSize]{};
    std::wstring name_{L"unknown"};
    std::atomic<std::int32_t> references_{0};
    LockStruct lock_;
    std::int64_t counterFrequency_; ///< counts per second, as the library read it at load
    std::int32_t timerType_ = 0;
};

} // namespace Nima::Common::System::OS::Diagnostics
