#include "tools/story/Folder.h"

#include "tools/base/CounterClock.h"
#include "tools/story/Sources.h"

#include <algorithm>
#include <filesystem>

#include <sys/stat.h>

namespace NimaPost {

namespace {

/// A device leaves a few dozen.
constexpr std::size_t kMostFiles = 4096;
/// In seconds; what a file system makes up beyond it is no time of a device.
constexpr std::int64_t kLastModified = 8'000'000'000;

} // namespace

bool ListFolder(const std::string& folder, std::vector<std::string>& names, std::string& problem) {
    std::error_code error;
    std::filesystem::directory_iterator entries(folder, error);
    for (; !error && entries != std::filesystem::directory_iterator(); entries.increment(error)) {
        if (names.size() >= kMostFiles) {
            problem = folder + ": more than " + std::to_string(kMostFiles) + " files";
            return false;
        }
        std::error_code unknown;
        // What cannot be told, such as where a broken link leads, is reported when it cannot be opened.
        const std::filesystem::file_type type = entries->status(unknown).type();
        if (type == std::filesystem::file_type::regular || type == std::filesystem::file_type::not_found ||
            type == std::filesystem::file_type::unknown || type == std::filesystem::file_type::none) {
            names.push_back(entries->path().filename());
        }
    }
    if (error) {
        problem = folder + ": " + error.message();
        return false;
    }
    std::sort(names.begin(), names.end());
    return true;
}

void ReadFolderFile(const std::string& folder, FolderFile& file, SourceSet& sources) {
    const std::string path = std::filesystem::path(folder) / file.name;
    struct stat status {};
    if (stat(path.c_str(), &status) == 0) {
        file.identity = IdentityOf(status);
        if (status.st_mtim.tv_sec >= 0 && status.st_mtim.tv_sec < kLastModified) {
            file.modified = status.st_mtim.tv_sec * kSecond + status.st_mtim.tv_nsec;
        }
    }
    std::string problem;
    auto input = InputFile::Open(path, problem);
    if (!input) {
        file.unusable = true;
        file.findings.Damage("cannot-open", problem);
        return;
    }
    file.bytes = input->Size();
    file.identity = input->Identity();
    const std::string front = input->ReadAll(kFrontBytes);
    file.ownOutput = IsOwnOutput(front);
    file.row = Recognise(front, file.bytes);
    if (file.row != nullptr) {
        file.row->source(sources).Read(file, *input);
    }
    if (!input->ReadProblem().empty()) {
        file.unusable = file.unusable || file.row == nullptr;
        input->ReportReadProblem(file.findings);
    }
}

} // namespace NimaPost
