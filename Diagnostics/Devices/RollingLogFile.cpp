#include "Diagnostics/Files/FileRolling.h"
#include "Diagnostics/Files/OutputFile.h"
#include "Diagnostics/TraceFormat.h"
#include "catalogue/Marks.h"
#include "platform/Cancellation.h"
#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/PatientLock.h"

#include <cerrno>
#include <cstring>
#include <mutex>
#include <utility>

#include <fcntl.h>

#include <Diagnostics/RollingLogFile.h>
#include <Diagnostics/TraceApi.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr int kBufferSize = 4096;
/// Room for a line; the last two bytes of the buffer are for the line end it may need.
constexpr int kLineRoom = kBufferSize - 2;
constexpr int kLineEndLength = 2;
constexpr const char* kLineEnd = "\r\n";

} // namespace

CRollingLogFile::CRollingLogFile() : writeBuffer_(new unsigned char[kBufferSize]), file_(InvalidHandle()) {}

CRollingLogFile::~CRollingLogFile() {
    const CancellationDelay delay;
    InternalClose();
    delete[] writeBuffer_;
}

void CRollingLogFile::Init(_TraceConfig* config) {
    const std::lock_guard guard(lock_);
    InternalClose();
    if (config != nullptr && config->type == TRACE_DEVICE_ROLLING_LOG_FILE) {
        const auto& settings = config->settings.rollingLogFile;
        activeFileName_ = settings.fileName != nullptr ? settings.fileName : L"";
        maxFileSize_ = static_cast<std::int32_t>(settings.maxFileSize);
        maxRollCount_ = static_cast<std::int32_t>(settings.maxRollCount);
        append_ = settings.append;
    }
    constexpr long kIsDirectory = 0x4000;
    long attributes = 0;
    if (FileExists(activeFileName_, attributes)) {
        if ((attributes & kIsDirectory) != 0) {
            SetOpen(false);
            errno = EINVAL;
            return;
        }
        if (!InternalInit()) {
            return;
        }
        if (!append_) {
            RollFiles();
        }
    }
    RecordCalibration();
}

void CRollingLogFile::Close() {
    const std::lock_guard guard(lock_);
    InternalClose();
}

// A null handle, the result of a failed open, counts as closed too.
bool CRollingLogFile::HasFile() const {
    return IsValidHandle(file_);
}

bool CRollingLogFile::InternalInit() {
    file_ = OpenOutputFile(activeFileName_, kRollingLogMode, O_CREAT);
    if (!HasFile()) {
        file_ = InvalidHandle();
        SetOpen(false);
        return false;
    }
    bytesWritten_ = static_cast<std::int32_t>(_get_file_size_helper(file_));
    if (_set_file_pointer_helper(file_, 0, SEEK_END) == -1) {
        const int seekError = errno;
        InternalClose();
        WriteCriticalDbgMsg(L"HOLD IT!!! Failed to seek to the end of the trace log, trace is disabled!\r\n");
        errno = seekError; // what a failed creation reports
        return IsOpen();
    }
    SetOpen(true);
    return true;
}

void CRollingLogFile::InternalClose() {
    if (!HasFile()) {
        return;
    }
    FlushBigBuffer();
    _flush_file_helper(file_);
    _close_handle_helper(file_);
    file_ = InvalidHandle();
    SetOpen(false);
}

void CRollingLogFile::WriteToFile(const void* bytes, int length) {
    long written = 0;
    _write_file_helper(file_, static_cast<const char*>(bytes), length, &written);
    // A 32-bit count, which wraps in a file of more than 2 GiB.
    bytesWritten_ = static_cast<std::int32_t>(static_cast<std::uint32_t>(bytesWritten_) +
                                              static_cast<std::uint32_t>(written));
}

// What a short write does not store is dropped: no write path waits for room on the medium.
void CRollingLogFile::FlushBigBuffer() {
    if (writeBufferFill_ != 0) {
        WriteToFile(writeBuffer_, writeBufferFill_);
        writeBufferFill_ = 0;
    }
}

void CRollingLogFile::Flush(bool final) {
    const std::lock_guard guard(lock_);
    if (!HasFile()) {
        return;
    }
    if (buffering_) {
        FlushBigBuffer();
    }
    _flush_file_helper(file_);
    if (final) {
        buffering_ = false;
    }
}

void CRollingLogFile::Flush() {
    Flush(false);
}

void CRollingLogFile::WriteData(unsigned char* text, int length) {
    if (text == nullptr || length <= 0) {
        return;
    }
    // The counter is read under the lock, so that lines are in the order of their counters.
    const ThreadPart thread = ThreadPart::OfCaller();
    const PatientGuard guard(lock_);
    if (IsOpen()) {
        _LARGE_INTEGER counter;
        _query_performance_counter_helper(&counter);
        lastCounter_ = counter.QuadPart;
        const int headerLength = ComposeCounterHeader(headerBuffer_, lastCounter_, thread);
        StoreLine(headerBuffer_, headerLength, text, length);
    }
}

void CRollingLogFile::WriteDataRaw(unsigned char* data, int length) {
    if (data == nullptr || length <= 0) {
        return;
    }
    const PatientGuard guard(lock_);
    if (IsOpen()) {
        StoreLine(nullptr, 0, data, length);
    }
}

void CRollingLogFile::WritePreFormattedMessage(char* header, int headerLength, unsigned char* message,
                                               int messageLength) {
    if (message == nullptr || messageLength <= 0 || header == nullptr || headerLength <= 0) {
        return;
    }
    const PatientGuard guard(lock_);
    if (IsOpen()) {
        StoreLine(header, headerLength, message, messageLength);
    }
}

// The roll is decided after the line is stored, by the bytes that have reached the file: the file may exceed
// its maximum by a buffer and a line.
void CRollingLogFile::StoreLine(const char* prefix, int prefixLength, const unsigned char* payload,
                                int payloadLength) {
    const std::int64_t total = std::int64_t{prefixLength} + payloadLength;
    const int lineEndLength = payload[payloadLength - 1] == '\n' ? 0 : kLineEndLength;
    if (total < kLineRoom && buffering_) {
        if (total > kLineRoom - writeBufferFill_) {
            FlushBigBuffer();
        }
        unsigned char* out = writeBuffer_ + writeBufferFill_;
        if (prefixLength > 0) {
            std::memcpy(out, prefix, static_cast<std::size_t>(prefixLength));
            out += prefixLength;
        }
        std::memcpy(out, payload, static_cast<std::size_t>(payloadLength));
        out += payloadLength;
        std::memcpy(out, kLineEnd, kLineEndLength); // there is always room for one
        writeBufferFill_ += static_cast<std::int32_t>(total) + lineEndLength;
    } else {
        FlushBigBuffer();
        if (prefixLength > 0) {
            WriteToFile(prefix, prefixLength);
        }
        WriteToFile(payload, payloadLength);
        if (lineEndLength > 0) {
            WriteToFile(kLineEnd, lineEndLength);
        }
    }
    if (ReachedMaximum()) {
        RollFiles();
        RecordCalibration();
    }
}

void CRollingLogFile::RollFiles() {
    const std::wstring target = propertyFileName_ + L".1";
    RollFileBackups(propertyFileName_, maxRollCount_);
    if (maxRollCount_ != 0) {
        InternalClose();
        _move_file_helper(propertyFileName_.c_str(), target.c_str());
        InternalInit();
    } else if (RewindFilePosition()) {
        bytesWritten_ = 0;
    } else {
        InternalClose();
        if (_delete_file_helper(propertyFileName_.c_str()) != 0) {
            InternalInit();
        }
    }
    if (IsOpen() && ReachedMaximum()) {
        WriteCriticalDbgMsg(L"DREL Trace!! Failed to roll trace file, seeking to beginning of file!\r\n");
        // The count stays, so every later line rolls again: the message repeats until the host's setup is
        // corrected.
        if (!RewindFilePosition()) {
            WriteCriticalDbgMsg(L"DREL Trace!!  Failed to reset file pointer, disabling trace!\r\n");
            InternalClose();
        }
    }
}

bool CRollingLogFile::RewindFilePosition() {
    return HasFile() && _set_file_pointer_helper(file_, 0, SEEK_SET) != -1;
}

// Written straight to the file, so that it comes before any line that is buffered later.
void CRollingLogFile::RecordCalibration() {
    if (!IsOpen()) {
        return;
    }
    const int headerLength = WriteHeaderCounter();
    _SYSTEMTIME now;
    _get_local_time_helper(&now);
    constexpr std::size_t kTextSize = 256;
    char buffer[kTextSize] = {};
    int length = 0;
    {
        TextComposer text(buffer, kTextSize);
        text.Add('<');
        text.Add(Catalogue::kCalibrationLevel);
        text.Add("> <Trace> Calibration freq=");
        text.AddNumber(counterFrequency_);
        text.Add(", ");
        text.Add(Catalogue::kCalibrationDate);
        ComposeDate(text, now, DateFields::kAsTheyAre);
        text.Add(Catalogue::kCalibrationType);
        text.Add(GetTimerType());
        length = text.length();
    }
    WriteToFile(headerBuffer_, headerLength);
    WriteToFile(buffer, length);
    WriteToFile(kLineEnd, kLineEndLength);
}

long CRollingLogFile::GetMaxFileSize() {
    return propertyMaxFileSize_;
}

void CRollingLogFile::SetMaxFileSize(long bytes) {
    propertyMaxFileSize_ = static_cast<std::int32_t>(bytes);
}

std::wstring CRollingLogFile::GetFileName() {
    return propertyFileName_;
}

void CRollingLogFile::SetFileName(std::wstring name) {
    propertyFileName_ = std::move(name);
}

long CRollingLogFile::GetMaxRollCount() {
    return propertyMaxRollCount_;
}

void CRollingLogFile::SetMaxRollCount(long count) {
    propertyMaxRollCount_ = static_cast<std::int32_t>(count);
}

bool CRollingLogFile::GetAppend() {
    return propertyAppend_;
}

void CRollingLogFile::SetAppend(bool append) {
    propertyAppend_ = append;
}

bool CRollingLogFile::GetNewLine() {
    return propertyNewLine_;
}

void CRollingLogFile::SetNewLine(bool newLine) {
    propertyNewLine_ = newLine;
}

} // namespace Nima::Common::System::OS::Diagnostics
