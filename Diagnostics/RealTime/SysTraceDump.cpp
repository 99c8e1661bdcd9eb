#include "Diagnostics/Files/DumpFile.h"
#include "Diagnostics/RealTime/RealTimeTrace.h"
#include "Diagnostics/RealTime/WideMessage.h"
#include "platform/Files.h"

#include <algorithm>
#include <cerrno>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

/// Limits single writes.
constexpr long long kPieceSize = 1048576;

/// Ends a capture that has begun, however its scope is left: a dump that is cancelled or runs out of memory
/// must not leave tracing paused for every process on the block.
class CaptureEnd {
  public:
    CaptureEnd(SysTraceBuffer& buffer, unsigned long event) : buffer_(buffer), event_(event) {}
    CaptureEnd(const CaptureEnd&) = delete;
    CaptureEnd& operator=(const CaptureEnd&) = delete;
    ~CaptureEnd() {
        buffer_.EndTraceCapture();
        RTTrace(event_);
    }

  private:
    SysTraceBuffer& buffer_;
    unsigned long event_;
};

bool BeginCapture(SysTraceBuffer& buffer, unsigned long refusedEvent, unsigned long endEvent) {
    if (buffer.BeginTraceCapture()) {
        return true;
    }
    PrintWideMessage(L"ERROR!! SysTrace::Dump() BeginTraceCapture() failed! \r\n");
    RTTrace(refusedEvent);
    RTTrace(endEvent);
    return false;
}

} // namespace

SysTraceDumpHeader SysTraceBuffer::DumpHeader() const {
    SysTraceDumpHeader header{};
    header.size = sizeof(header);
    header.word1 = 1;
    header.word2 = 2;
    header.bufferSize = static_cast<std::uint32_t>(bufferSize_);
    header.magic = SYSTRACE_DUMP_MAGIC;
    return header;
}

// Up to the last entry if the entries have not wrapped, which a wrap count of exactly 0 means; otherwise
// everything. An adopted header may say anything: never more than there is.
long long SysTraceBuffer::DumpLength() {
    long long length = bufferSize_;
    if (Load(WrapCount()) == 0) {
        const std::uint32_t used = Load(*writeIndex_) + 1;
        length = SYSTRACE_HEADER_SIZE +
                 static_cast<long long>(used) * static_cast<long long>(sizeof(SysTraceEntry));
    }
    return std::min<long long>(length, memorySize_);
}

void SysTraceBuffer::WriteBlock(void* file, const wchar_t* path) {
    const SysTraceDumpHeader fileHeader = DumpHeader();
    if (_write_file_helper(file, reinterpret_cast<const char*>(&fileHeader), sizeof(fileHeader), nullptr) ==
        0) {
        return;
    }
    const char* data = reinterpret_cast<const char*>(memory_);
    for (long long remaining = DumpLength(); remaining > 0;) {
        long written = 0;
        if (_write_file_helper(file, data, static_cast<long>(std::min(remaining, kPieceSize)), &written) ==
            0) {
            PrintWideMessage(L"ERROR!!  Failed to write SysTrace to %s, err=%d.\r\n", path, errno);
            return;
        }
        if (written == 0) {
            PrintWideMessage(L"ERROR!!  Failed to write SysTrace to %s, zero bytes written.\r\n", path);
            return;
        }
        data += written;
        remaining -= written;
    }
}

void SysTraceBuffer::Dump(const wchar_t* path, int backups) {
    RTTrace(kFileDumpStarts);
    if (!BeginCapture(*this, kFileDumpRefused, kFileDumpEnds)) {
        return;
    }
    const CaptureEnd end(*this, kFileDumpEnds);
    void* const file = _CreateFileAndRollBackup(path, backups);
    if (IsValidHandle(file)) {
        const HandleGuard guard(file);
        WriteBlock(file, path);
    }
}

void SysTraceBuffer::PassBlock(SysTraceDumpCallback callback, void* context) {
    const SysTraceDumpHeader fileHeader = DumpHeader();
    int written = 0;
    if (callback(reinterpret_cast<const char*>(&fileHeader), sizeof(fileHeader), &written, context) == 0) {
        return;
    }
    const char* data = reinterpret_cast<const char*>(memory_);
    for (long long remaining = DumpLength(); remaining > 0;) {
        const int piece = static_cast<int>(std::min(remaining, kPieceSize));
        written = 0;
        if (callback(data, piece, &written, context) == 0) {
            PrintWideMessage(L"ERROR!!  Failed to write SysTrace to callback, err=%d.\r\n", errno);
            return;
        }
        if (written == 0) {
            PrintWideMessage(L"ERROR!!  Failed to write SysTrace to callback, zero bytes written.\r\n");
            return;
        }
        // A callback cannot take more than it was offered, nor a negative number of bytes.
        const int taken = std::clamp(written, 0, piece);
        if (taken == 0) {
            return;
        }
        data += taken;
        remaining -= taken;
    }
}

void SysTraceBuffer::Dump(SysTraceDumpCallback callback, void* context) {
    if (callback == nullptr) {
        PrintWideMessage(L"ERROR!!  SysTrace::Dump() callback is NULL\r\n");
        RTTrace(kCallbackDumpWithoutCallback);
        return;
    }
    RTTrace(kCallbackDumpStarts);
    if (!BeginCapture(*this, kCallbackDumpRefused, kCallbackDumpEnds)) {
        return;
    }
    const CaptureEnd end(*this, kCallbackDumpEnds);
    PassBlock(callback, context);
}

} // namespace Nima::Common::System::OS::Diagnostics

using namespace Nima::Common::System::OS::Diagnostics;

int DumpSysTrace(const wchar_t* path, int backups) {
    return WithBuffer([=](SysTraceBuffer& buffer) { buffer.Dump(path, backups); });
}

int DumpSysTraceEx(SysTraceDumpCallback callback, void* context) {
    return WithBuffer([=](SysTraceBuffer& buffer) { buffer.Dump(callback, context); });
}
