#include "tools/story/Folder.h"

#include "tools/base/InputFile.h"
#include "tools/crash/CrashLog.h"
#include "tools/log/LogLine.h"
#include "tools/rings/Rings.h"
#include "tools/systrace/SysTraceFile.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include <Diagnostics/Formats.h>

namespace NimaPost {

namespace {

constexpr std::size_t kFrontBytes = 8192;
/// A device leaves a few dozen.
constexpr std::size_t kMostFiles = 4096;

bool LooksLikeEventRecord(std::string_view front, std::uint64_t size) {
    VantorCallbackStruct head{};
    if (front.size() < sizeof(head)) {
        return false;
    }
    std::memcpy(&head, front.data(), sizeof(head));
    return head.totalSize == size && head.version == VANTOR_RECORD_VERSION &&
           head.sourceSize == VANTOR_SOURCE_SIZE;
}

} // namespace

const char* KindName(FileKind kind) {
    switch (kind) {
        case FileKind::kTextLog:
            return "text log";
        case FileKind::kQueueLog:
            return "memory queue's log";
        case FileKind::kSysTrace:
            return "binary trace";
        case FileKind::kRingSegment:
            return "ring segment";
        case FileKind::kRingText:
            return "ring dump";
        case FileKind::kCrashLog:
            return "crash log";
        case FileKind::kStackTrace:
            return "stack trace";
        case FileKind::kEventRecord:
            return "event record";
        default:
            return "other";
    }
}

FileKind ClassifyFile(std::string_view front, std::uint64_t size) {
    if (LooksLikeSysTrace(front)) {
        return FileKind::kSysTrace;
    }
    if (LooksLikeCrashLog(front)) {
        return FileKind::kCrashLog;
    }
    if (LooksLikeRingText(front)) {
        return FileKind::kRingText;
    }
    if (LooksLikeStackTrace(front)) {
        return FileKind::kStackTrace;
    }
    if (LooksLikeEventRecord(front, size)) {
        return FileKind::kEventRecord;
    }
    if (LooksLikeRingSegment(front, size)) {
        return FileKind::kRingSegment;
    }
    if (const auto log = LogKindOf(front)) {
        return *log == LogKind::kQueue ? FileKind::kQueueLog : FileKind::kTextLog;
    }
    return FileKind::kOther;
}

bool ReadFolder(const std::string& path, std::vector<FolderFile>& files, std::string& problem) {
    std::error_code error;
    std::filesystem::directory_iterator entries(path, error);
    for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
        if (files.size() >= kMostFiles) {
            problem = path + ": more than " + std::to_string(kMostFiles) + " files";
            return false;
        }
        std::error_code ignored;
        if (!entries->is_regular_file(ignored)) {
            continue;
        }
        FolderFile file;
        file.name = entries->path().filename();
        file.path = entries->path();
        std::string reason;
        const auto input = InputFile::Open(file.path, reason);
        if (input) {
            file.bytes = input->Size();
            file.kind = ClassifyFile(input->ReadAll(kFrontBytes), file.bytes);
        } else {
            file.unusable = true;
            file.findings.Damage(reason);
        }
        files.push_back(std::move(file));
    }
    if (error) {
        problem = path + ": " + error.message();
        return false;
    }
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return true;
}

} // namespace NimaPost
