#pragma once

#include <string>

#include <Diagnostics/TraceDevice.h>

namespace Nima::Common::System::OS::Diagnostics {

/// A text log of bounded size; a configuration record of type 1 creates one. Lines are gathered in a
/// 4096-byte buffer and reach the file when the next line would not fit, on `Flush` and on `Close`.
///
/// The device has two sets of settings. The configured set (size, backups, file name, append) comes with
/// `Init` and controls opening, writing and when to roll. The property set is what the accessors below read
/// and write. Of the properties only the file name has an effect: a roll renames, deletes and looks for
/// backups under that name. A host that wants a full log kept as a backup sets it to the log's own name:
///
///     auto* log = static_cast<CRollingLogFile*>(handle);   // a handle of a device of type 1
///     log->SetFileName(L"device.log");
///
/// While the name is empty, a full log with 0 backups is overwritten from its start. A full log with backups
/// configured reports on every line that it failed to roll and writes each line at the start of the file, so
/// that only the newest survives: set the name, or configure 0 backups.
///
/// The maximum is kept as a signed 32-bit number. With 0, or from 2^31 on, the log is full at every line, and
/// each time it rolls or continues at its start. A path belongs to one process: a second process that logs to
/// it keeps its own position, and each overwrites the other's lines.
class NIMA_DIAGNOSTICS_API CRollingLogFile : public CBaseTraceDevice {
  public:
    CRollingLogFile();
    /// Writes out the buffer and closes the file, without taking the lock: no other thread may be using the
    /// device.
    ~CRollingLogFile() override;

    /// Closes the file, takes the settings of a record of type 1 (any other record, or none, keeps the
    /// current ones), opens the file at its end and writes a calibration line. Without the append flag the
    /// file is first rolled as if it were full. On failure the device is closed and `errno` says why. On ARM
    /// the path must not be a symbolic link (ELOOP).
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

    // The caller must hold the lock for all of these.
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
