#pragma once

#include <string>

#include <Diagnostics/TraceDevice.h>

namespace Nima::Common::System::OS::Diagnostics {

/// A text log of bounded size: what a configuration record of type 1 creates. Lines are gathered in a
/// 4096-byte buffer and reach the file when the next line would not fit, on `Flush` and on `Close`.
///
/// The device has two sets of settings. The configured one (size, backups, file name, append) comes with
/// `Init` and governs opening, writing and the decision to roll. The property set is what the accessors
/// below read and write; of it only the file name has an effect: it is the name that a roll renames,
/// deletes and looks for backups under. A host that wants its log kept as a backup when it is full sets it
/// to the log's own name:
///
///     auto* log = static_cast<CRollingLogFile*>(handle);   // a handle of a device of type 1
///     log->SetFileName(L"device.log");
///
/// While it is empty a log with 0 backups is overwritten from its start when it is full. With backups
/// configured it then reports on every line that it failed to roll and writes each at the file's start, so
/// that only the newest survives: set the name, or configure 0 backups.
///
/// The maximum is kept as a signed 32-bit number: with 0, or from 2^31 on, the log is full at every line, and
/// rolls or goes on at its start each time. A path belongs to one process: a second one that logs to it
/// keeps a position of its own, and each overwrites the other's lines.
class NIMA_DIAGNOSTICS_API CRollingLogFile : public CBaseTraceDevice {
  public:
    CRollingLogFile();
    /// Writes out what is buffered and closes the file, without taking the lock: no other thread may be
    /// using the device.
    ~CRollingLogFile() override;

    /// Closes the file, takes the settings of a record of type 1 (any other record, or none, keeps those
    /// in force), opens the file at its end and writes a calibration line. Without the append flag it is
    /// rolled first, as a full one is. On failure the device is closed and `errno` tells why. On ARM the path
    /// must not be a symbolic link (ELOOP).
    void Init(_TraceConfig* config) override;
    void Close() override;
    /// The writers ignore a null pointer, a length of 0 or less and a closed device. A line whose last
    /// byte is not a line feed gets "\r\n".
    void WriteData(unsigned char* text, int length) override;
    void WriteDataRaw(unsigned char* data, int length) override;
    void WritePreFormattedMessage(char* header, int headerLength, unsigned char* message,
                                  int messageLength) override;
    /// Writes the buffer to the file and the file to the medium. With `final` the device stops buffering
    /// for good.
    void Flush(bool final) override;
    /// As `Flush(false)`.
    void Flush() override;

    /// The property set. No accessor takes the lock: set properties before other threads write.
    virtual long GetMaxFileSize();
    virtual void SetMaxFileSize(long bytes);
    virtual std::wstring GetFileName();
    virtual void SetFileName(std::wstring name);
    virtual long GetMaxRollCount();
    virtual void SetMaxRollCount(long count);
    virtual bool GetAppend();
    virtual void SetAppend(bool append);
    virtual bool GetNewLine();
    virtual void SetNewLine(bool newLine);

  private:
    friend class ForkedDevice;

    // All of these expect the caller to hold the lock.
    bool InternalInit();
    void InternalClose();
    void FlushBigBuffer();
    void RollFiles();
    bool RewindFilePosition();
    void RecordCalibration();
    bool HasFile() const;
    bool ReachedMaximum() const { return bytesWritten_ >= maxFileSize_; }
    void WriteToFile(const void* bytes, int length);
    void StoreLine(const char* prefix, int prefixLength, const unsigned char* payload, int payloadLength);

    std::int32_t maxFileSize_ = 0;
    std::int32_t propertyMaxFileSize_ = 0;
    std::wstring activeFileName_;
    std::wstring propertyFileName_;
    std::int32_t maxRollCount_ = 0;
    std::int32_t propertyMaxRollCount_ = 0;
    bool append_ = false;
    bool propertyAppend_ = false;
    bool propertyNewLine_ = false;
    std::int32_t bytesWritten_ = 0; ///< bytes in the file since it was opened or rewound
    unsigned char* writeBuffer_;
    std::int32_t writeBufferFill_ = 0;
    void* file_;
    bool buffering_ = true;
};

} // namespace Nima::Common::System::OS::Diagnostics
