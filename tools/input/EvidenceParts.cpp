#include "tools/input/EvidenceParts.h"

#include "tools/input/ArchiveReader.h"
#include "tools/input/FolderListing.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <iterator>
#include <string_view>
#include <utility>

#include <sys/stat.h>

namespace NimaPost {

namespace {

namespace fs = std::filesystem;

/// Those of SQLite.
constexpr std::array<std::string_view, 4> kSideFiles{"", "-wal", "-shm", "-journal"};

/// Whether a file holds others, rather than being one that was compressed.
bool IsArchive(const std::string& path) {
    std::string problem;
    const auto input = InputFile::Open(path, problem);
    if (!input || !LooksPacked(input->ReadAll(kFrontBytes))) {
        return false;
    }
    ArchiveReader archive(*input);
    ArchiveMember member;
    return archive.Next(member) && !archive.IsCompressedFile();
}

bool LooksPackedAt(const std::string& path) {
    std::string problem;
    const auto input = InputFile::Open(path, problem);
    return input && LooksPacked(input->ReadAll(kFrontBytes));
}

class Lister {
  public:
    explicit Lister(const OwnFile& own) : own_(own) {}

    void AddFolder(const std::string& path) {
        const FolderListing listing(path);
        EvidencePart folder;
        folder.path = path;
        folder.problem = listing.error ? path + ": " + listing.error.message() : std::string();
        const bool holdsOwn = own_.IsIn(path);
        std::vector<EvidencePart> archives;
        for (const std::string& name : listing.files) {
            std::string file = (fs::path(path) / name).string();
            if (holdsOwn && own_.Owns(name)) {
                continue;
            }
            if (IsArchive(file)) {
                AddArchive(std::move(file), archives);
            } else {
                folder.files.push_back(name);
            }
        }
        folder.holdsParts = !archives.empty() || !listing.folders.empty();
        parts_.push_back(std::move(folder));
        std::move(archives.begin(), archives.end(), std::back_inserter(parts_));
        for (const std::string& name : listing.folders) {
            AddFolder((fs::path(path) / name).string());
        }
    }

    void AddNamed(const std::string& path) {
        std::error_code error;
        if (fs::is_directory(path, error)) {
            AddFolder(path);
        } else if (LooksPackedAt(path)) {
            AddArchive(path, parts_);
        } else {
            EvidencePart part;
            part.path = path;
            InputFile::Open(path, part.problem);
            part.problem = part.problem.empty() ? path + ": neither a folder nor an archive" : part.problem;
            parts_.push_back(std::move(part));
        }
    }

    std::vector<EvidencePart> Take() { return std::move(parts_); }

  private:
    static void AddArchive(std::string path, std::vector<EvidencePart>& parts) {
        EvidencePart part;
        part.path = std::move(path);
        part.isArchive = true;
        parts.push_back(std::move(part));
    }

    const OwnFile& own_;
    std::vector<EvidencePart> parts_;
};

} // namespace

OwnFile::OwnFile(const std::string& path) {
    std::error_code error;
    // Side files stand beside the file itself, not beside a link to it.
    fs::path real = fs::weakly_canonical(path, error);
    real = error ? fs::path(path) : real;
    name_ = real.filename().string();
    struct stat status {};
    if (stat(real.has_parent_path() ? real.parent_path().c_str() : ".", &status) == 0) {
        folder_ = IdentityOf(status);
    }
}

bool OwnFile::IsIn(const std::string& folder) const {
    struct stat status {};
    return stat(folder.c_str(), &status) == 0 && IdentityOf(status) == folder_;
}

bool OwnFile::Owns(const std::string& file) const {
    for (const std::string_view side : kSideFiles) {
        if (file == name_ + std::string(side)) {
            return true;
        }
    }
    return false;
}

std::vector<EvidencePart> PartsOf(const std::string& argument, const OwnFile& own) {
    Lister lister(own);
    lister.AddNamed(argument);
    return lister.Take();
}

} // namespace NimaPost
