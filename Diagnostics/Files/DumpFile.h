#pragma once

namespace Nima::Common::System::OS::Diagnostics {

/// Opens an empty dump file, after shifting the numbered backups of the earlier one (`RollFileBackups`). With
/// `backups` above 0 the previous file is then moved to `path` with ".1" appended; otherwise it is deleted.
/// If it can be neither moved nor deleted, it is emptied and reused. A negative count means 0. Returns the
/// all-ones handle for a null path, null if the file cannot be opened.
void* _CreateFileAndRollBackup(const wchar_t* path, int backups);

/// Writes a text to a file handle with one unchecked write.
void _WriteSingleLine(void* file, const char* text);

/// Writes the head of a diagnostics file, "<title> Date/Time: ...", "Ticks: ..." and "Frequency: ...", each
/// formatted in `buffer` of `size` bytes and cut to it. The date's fields are as the clock delivers them:
/// years since 1900, months from 0, microseconds cut to 16 bits. Writes nothing for a null title or an
/// all-ones handle.
void WriteDiagnosticsFileHeader(char* buffer, int size, void* file, const char* title);

} // namespace Nima::Common::System::OS::Diagnostics
