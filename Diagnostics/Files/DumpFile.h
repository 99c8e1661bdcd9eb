#pragma once

namespace Nima::Common::System::OS::Diagnostics {

/// Opens an empty dump file, the earlier one's numbered backups shifted first (`RollFileBackups`). With
/// `backups` above 0 the file before is then moved to `path` with ".1" appended, otherwise it is deleted; one
/// that can be neither moved nor deleted is emptied and used again. A negative count is 0. The all-ones
/// handle for a null path, null when the file cannot be opened.
void* _CreateFileAndRollBackup(const wchar_t* path, int backups);

/// Writes a text to a file handle with one write, unchecked.
void _WriteSingleLine(void* file, const char* text);

/// Writes the head of a diagnostics file, "<title> Date/Time: ...", "Ticks: ..." and "Frequency: ...", each
/// formatted in `buffer` of `size` bytes and cut to it. The date's fields stand as the clock delivers them:
/// years since 1900, months from 0, microseconds cut to 16 bits. Nothing for a null title or an all-ones
/// handle.
void WriteDiagnosticsFileHeader(char* buffer, int size, void* file, const char* title);

} // namespace Nima::Common::System::OS::Diagnostics
