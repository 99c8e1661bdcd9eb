#pragma once

#include <string>

namespace Nima::Common::System::OS::Diagnostics {

/// True, whatever the path: rolling attempts every delete and rename. Callers that need to know use the
/// second form.
bool FileExists(const std::wstring& path);

/// True; `attributes` says whether the path exists (1) or not (0).
bool FileExists(const std::wstring& path, long& attributes);

/// Writes a whole buffer to a file handle, continuing after short writes. Returns 1 when all was written, 0
/// on a write failure. Each piece after the first is taken from an offset equal to the length of the last
/// write. If a file system splits a write into three or more pieces, the file is therefore wrong from the
/// third piece on.
int FlushBufferToFile(void* file, unsigned char* buffer, long length);

/// Shifts the numbered backups of `baseName` by one and drops the oldest. With `includeBase` the file itself
/// becomes the newest backup (or, with a count of 0, is deleted). A negative count means its absolute value.
/// Every numbered backup has the same name, `baseName` with ".10" appended: there is at most one backup, and
/// each roll discards the one before. Nothing is reported.
void RollFileBackupsImpl(const std::wstring& baseName, int count, bool includeBase);
void RollFileBackups(const std::wstring& baseName, int count);
void RollFileBackupsEx(const std::wstring& baseName, int count, bool includeBase);

} // namespace Nima::Common::System::OS::Diagnostics
