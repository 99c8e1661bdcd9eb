#pragma once

#include <string>

namespace Nima::Common::System::OS::Diagnostics {

/// True, whatever the path: rolling attempts every delete and rename. Who needs to know uses the second form.
bool FileExists(const std::wstring& path);

/// True; `attributes` tells whether the path exists (1) or not (0).
bool FileExists(const std::wstring& path, long& attributes);

/// Writes a whole buffer to a file handle, going on after short writes. 1 when all was written, 0 on a write
/// failure. Each piece after the first is taken from as far into the buffer as the last write was long,
/// so a file system that splits a write in three or more gets the wrong bytes from the third piece on.
int FlushBufferToFile(void* file, unsigned char* buffer, long length);

/// Shifts the numbered backups of `baseName` by one and drops the oldest; with `includeBase` the file itself
/// becomes the newest backup (or, with a count of 0, is deleted). A negative count counts as its absolute
/// value. Every numbered backup has the same name, `baseName` with ".10" appended: there is one backup at
/// most, and each roll discards the one before. Nothing is reported.
void RollFileBackupsImpl(const std::wstring& baseName, int count, bool includeBase);
void RollFileBackups(const std::wstring& baseName, int count);
void RollFileBackupsEx(const std::wstring& baseName, int count, bool includeBase);

} // namespace Nima::Common::System::OS::Diagnostics
