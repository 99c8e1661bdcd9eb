#include "Diagnostics/Files/DumpFile.h"
#include "Diagnostics/Guarded.h"
#include "Diagnostics/RealTime/RingBufferMgr.h"
#include "Diagnostics/RealTime/TraceMemory.h"
#include "catalogue/Files.h"
#include "catalogue/Marks.h"
#include "catalogue/Text.h"
#include "platform/Cancellation.h"
#include "platform/Files.h"
#include "platform/Modules.h"
#include "platform/Text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr auto kBegin = Catalogue::Concatenated("\r\n", Catalogue::kRingDumpBegin, "\r\n\r\n");
constexpr auto kEnd = Catalogue::Concatenated("\r\n", Catalogue::kRingDumpEnd, "\r\n");
constexpr int kDumpTextSize = 255;
constexpr long kMapRings = 3;

void WriteFormatted(char* buffer, int bufferLength, void* file, const char* text) {
    const auto size = static_cast<std::size_t>(bufferLength);
    std::memset(buffer, 0, size);
    _snprintf_s_helper(buffer, size, size, "%s", text);
    _WriteSingleLine(file, buffer);
}

/// A mapped segment, closed at the end. `errno` stays that of the previous step.
class Segment {
  public:
    Segment() { CreateMemorySegment(Catalogue::kRingSegment.wide, RING_DIRECTORY_SIZE, &handle_, &view_); }
    Segment(const Segment&) = delete;
    Segment& operator=(const Segment&) = delete;
    ~Segment() {
        const CancellationDelay delay;
        const int error = errno;
        if (IsValidHandle(handle_)) {
            _close_handle_helper(handle_);
        }
        errno = error;
    }

    const RingDirectory* directory() const { return static_cast<const RingDirectory*>(view_); }
    bool Unmap() { return _unmap_view_of_file_helper(view_) != 0; }
    bool Map(std::uint32_t size) {
        view_ = _map_view_file_helper(handle_, kMapRings, 0, 0, static_cast<long>(size));
        return view_ != nullptr;
    }

  private:
    void* handle_ = nullptr;
    void* view_ = nullptr;
};

void WriteSegmentRings(const RingDirectory* directory, std::uint32_t size, void* file) {
    const void* const start = directory + 1;
    const auto* records = static_cast<const RingBufferData*>(start);
    std::uint32_t room = (size - RING_DIRECTORY_SIZE) / RING_RECORD_SIZE;
    for (int i = 0; i < RING_COUNT; ++i) {
        char text[kDumpTextSize] = {};
        _snprintf_s_helper(text, sizeof(text), sizeof(text), "%s%d%s\r\n", Catalogue::kRingHeadingBegin, i,
                           Catalogue::kRingHeadingEnd);
        _WriteSingleLine(file, text);
        // Whatever the directory says, the rings end with the segment.
        const std::uint32_t count = std::min(directory->entryCounts[i], room);
        WriteRecordsAsText(records, count, file);
        records += count;
        room -= count;
    }
}

} // namespace

void _DumpRingBuffersUnformatted(char* buffer, int bufferLength, void* file) {
    if (buffer == nullptr || bufferLength <= 0) {
        return;
    }
    try {
        WriteFormatted(buffer, bufferLength, file, kBegin.data());
        for (int i = 0; i < RING_COUNT; ++i) {
            CRingBuffer* ring = nullptr;
            if (GetRingBufferMgr().GetRingBuffer(i, &ring) == 0) {
                ring->Dump(file);
            }
        }
        WriteFormatted(buffer, bufferLength, file, kEnd.data());
    } catch (...) {
        if (IsCancellation()) {
            throw;
        }
        RecordInternalDiagnosticEvent(kFaultInDiagnostics, _get_exception_code_helper(), 0, 0, 0);
    }
}

} // namespace Nima::Common::System::OS::Diagnostics

using namespace Nima::Common::System::OS::Diagnostics;

void DumpRingBuffersUnformatted(const wchar_t* path, int backups) {
    GuardedCall([=] {
        void* const file = _CreateFileAndRollBackup(path, backups);
        if (!IsValidHandle(file)) {
            return;
        }
        const HandleGuard guard(file);
        char text[kDumpTextSize];
        WriteDiagnosticsFileHeader(text, kDumpTextSize, file, Nima::Catalogue::kRingDumpTitle);
        _DumpRingBuffersUnformatted(text, kDumpTextSize, file);
    });
}

int DumpRingBuffersUnformattedEx(const wchar_t* path, int backups) {
    return Guarded(ENOMEM, [=] {
        Segment segment;
        if (segment.directory() == nullptr) {
            return errno;
        }
        const std::uint32_t size = segment.directory()->segmentSize;
        if (size <= RING_DIRECTORY_SIZE) {
            return ENOSPC;
        }
        // On this platform a view is unmapped only with its mapping, so this reports failure and the dump
        // ends here.
        if (!segment.Unmap() || !segment.Map(size)) {
            return errno;
        }
        void* const file = _CreateFileAndRollBackup(path, backups);
        if (!IsValidHandle(file)) {
            return 0;
        }
        const HandleGuard guard(file);
        char text[kDumpTextSize];
        WriteDiagnosticsFileHeader(text, kDumpTextSize, file, Nima::Catalogue::kRingDumpTitle);
        _WriteSingleLine(file, kBegin.data());
        GuardedCall([&] { WriteSegmentRings(segment.directory(), size, file); });
        _WriteSingleLine(file, kEnd.data());
        _flush_file_helper(file);
        return 0;
    });
}
