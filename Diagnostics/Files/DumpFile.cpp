#include "Diagnostics/Files/DumpFile.h"

#include "Diagnostics/Files/FileRolling.h"
#include "Diagnostics/Files/OutputFile.h"
#include "catalogue/Marks.h"
#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Text.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string>

#include <fcntl.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

void* OpenDump(const std::wstring& path) {
    return OpenOutputFile(path, kDumpMode, O_CREAT);
}

/// Reads date and counter at one moment. The first date of a process may read the time zone from its file,
/// and any may be held up, so both are read again until little time passes in between: who reads the file
/// later has nothing else to tie the records of this counter to a date.
void ReadClocksTogether(_SYSTEMTIME* date, _LARGE_INTEGER* ticks) {
    constexpr std::int64_t kOneMoment = 50'000;
    constexpr int kMostTries = 5;
    for (int tries = 0; tries < kMostTries; ++tries) {
        _LARGE_INTEGER before;
        _query_performance_counter_helper(&before);
        _get_local_time_helper(date);
        _query_performance_counter_helper(ticks);
        // Over a whole second the counter falls by nearly a billion.
        const std::int64_t passed = ticks->QuadPart - before.QuadPart;
        if (passed >= 0 && passed <= kOneMoment) {
            return;
        }
    }
}

void* OpenEmptied(const std::wstring& path) {
    void* file = OpenDump(path);
    if (IsValidHandle(file)) {
        _set_file_pointer_helper(file, 0, SEEK_SET);
        _set_end_of_file_helper(file);
    }
    return file;
}

} // namespace

void* _CreateFileAndRollBackup(const wchar_t* path, int backups) {
    if (path == nullptr) {
        return InvalidHandle();
    }
    const std::wstring name(path);
    const int kept = std::max(backups, 0);
    RollFileBackups(name, kept);
    if (kept == 0) {
        const bool left = FileExists(name) && _delete_file_helper(path) != 0;
        return left ? OpenEmptied(name) : OpenDump(name);
    }
    const bool left = FileExists(name) && _move_file_helper(path, (name + L".1").c_str()) != 0;
    return left ? OpenEmptied(name) : OpenDump(name);
}

void _WriteSingleLine(void* file, const char* text) {
    _write_file_helper(file, text, static_cast<long>(std::strlen(text)), nullptr);
}

void WriteDiagnosticsFileHeader(char* buffer, int size, void* file, const char* title) {
    if (title == nullptr || file == InvalidHandle() || buffer == nullptr || size <= 0) {
        return;
    }
    _SYSTEMTIME now;
    _LARGE_INTEGER ticks;
    ReadClocksTogether(&now, &ticks);
    const auto room = static_cast<std::size_t>(size);

    std::memset(buffer, 0, room);
    _snprintf_s_helper(buffer, room, room, "%s%s%04d-%02d-%02d %02d:%02d:%02d.%03d\r\n", title,
                       Catalogue::kHeadDate, now.wYear, now.wMonth, now.wDay, now.wHour, now.wMinute,
                       now.wSecond, now.wMilliseconds);
    _WriteSingleLine(file, buffer);

    std::memset(buffer, 0, room);
    _snprintf_s_helper(buffer, room, room, "%s%lld\r\n", Catalogue::kHeadTicks,
                       static_cast<long long>(ticks.QuadPart));
    _WriteSingleLine(file, buffer);

    std::memset(buffer, 0, room);
    _snprintf_s_helper(buffer, room, room, "%s%lld\r\n\r\n", Catalogue::kHeadFrequency,
                       static_cast<long long>(CStopwatch::sFrequency));
    _WriteSingleLine(file, buffer);
}

} // namespace Nima::Common::System::OS::Diagnostics
