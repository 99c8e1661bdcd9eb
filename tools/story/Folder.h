#pragma once

#include "tools/base/Findings.h"

#include <cstdint>
#include <string>
#include <vector>

namespace NimaPost {

enum class FileKind : unsigned char {
    kTextLog,
    kQueueLog,
    kSysTrace,
    kRingSegment,
    kRingText,
    kCrashLog,
    kStackTrace,
    kEventRecord,
    kOther
};

/// "text log", "SysTrace", ...
const char* KindName(FileKind kind);

struct FolderFile {
    std::string name;
    std::string path;
    std::uint64_t bytes = 0;
    FileKind kind = FileKind::kOther;
    Findings findings;
    bool unusable = false;
};

/// What kind of file this is, from what it begins with and its size.
FileKind ClassifyFile(std::string_view front, std::uint64_t size);

/// The regular files of a folder, sorted by name, without those of its folders. False, with the reason, where
/// the folder cannot be read.
bool ReadFolder(const std::string& path, std::vector<FolderFile>& files, std::string& problem);

} // namespace NimaPost
