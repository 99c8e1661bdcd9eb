#include "tools/input/EvidenceReader.h"

#include "tools/input/ArchiveReader.h"
#include "tools/input/EvidenceParts.h"
#include "tools/input/FolderListing.h"
#include "tools/input/MemberNames.h"
#include "tools/input/StandardInput.h"
#include "tools/input/Unpacker.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include <sys/stat.h>

namespace NimaPost {

namespace {

namespace fs = std::filesystem;

/// So many files stay open between being looked at and being read.
constexpr std::size_t kMostOpen = 512;
constexpr unsigned kMostBackups = 10;

std::vector<std::string> BackupsOf(const std::string& path) {
    const std::string plain = NameUnpacked(path);
    std::vector<std::string> backups;
    for (unsigned number = kMostBackups; number >= 1; --number) {
        for (const std::string_view suffix : kCompressedSuffixes) {
            std::string backup = plain + "." + std::to_string(number) + std::string(suffix);
            std::error_code error;
            // A link that leads nowhere is reported when it cannot be opened.
            if (fs::exists(fs::symlink_status(backup, error))) {
                backups.push_back(std::move(backup));
            }
        }
    }
    return backups;
}

class Reader {
  public:
    explicit Reader(EvidenceStore& store) : store_(store) {}

    /// `label` sets devices of several arguments apart.
    void Add(const std::string& argument, const std::string& label, bool backups) {
        std::error_code error;
        if (argument == kStandardInput) {
            AddStandardInput(label);
        } else if (fs::is_directory(argument, error)) {
            AddFolder({label, argument, 0});
        } else {
            AddNamed(argument, label, false);
            for (const std::string& backup : backups ? BackupsOf(argument) : std::vector<std::string>()) {
                AddNamed(backup, label, true);
            }
        }
    }

    /// Files of one folder.
    void AddFiles(const Place& folder, const std::vector<std::string>& names) {
        for (const std::string& name : names) {
            EvidenceFile file;
            file.name = name;
            file.path = (fs::path(folder.path) / name).string();
            if (!store_.CountMember(file.path)) {
                return;
            }
            Place inside = folder.Inside(name);
            inside.path = file.path;
            Look(std::move(file), folder, inside);
        }
    }

  private:
    static EvidenceFile Named(const std::string& path) {
        EvidenceFile file;
        file.name = path;
        file.path = path;
        file.named = true;
        return file;
    }

    void AddNamed(const std::string& path, const std::string& label, bool backup) {
        EvidenceFile file = Named(path);
        file.backup = backup;
        Look(std::move(file), {"", path, 0}, {label, path, 0});
    }

    void AddStandardInput(const std::string& label) {
        EvidenceFile file = Named(kStandardInput);
        InputFile input = ReadStandardInput(store_);
        const Place place{"", kStandardInput, 0};
        if (LooksPacked(input.ReadAll(kFrontBytes))) {
            Unpack(input, file, place, {label, kStandardInput, 0}, store_);
        } else {
            file.content = std::move(input);
            store_.Keep(std::move(file), place);
        }
    }

    void AddFolder(const Place& folder) {
        const FolderListing listing(folder.path);
        if (listing.error) {
            store_.AllFindings().Damage("cannot-open", folder.path + ": " + listing.error.message());
        }
        AddFiles(folder, listing.files);
        for (const std::string& name : listing.folders) {
            Place inside = folder.Inside(name);
            inside.path = (fs::path(folder.path) / name).string();
            if (!store_.Stopped()) {
                AddFolder(inside);
            }
        }
    }

    /// Opens a file of this machine and finds out whether anything is packed in it.
    void Look(EvidenceFile file, const Place& place, const Place& inside) {
        struct stat status {};
        if (stat(file.path.c_str(), &status) == 0) {
            file.identity = IdentityOf(status);
            file.modified = ModificationTime(status.st_mtim.tv_sec, status.st_mtim.tv_nsec);
        }
        auto input = InputFile::Open(file.path, file.problem);
        if (input && LooksPacked(input->ReadAll(kFrontBytes))) {
            store_.AddInput(input->Identity());
            Unpack(*input, file, place, inside, store_);
            return;
        }
        if (input && opened_ < kMostOpen) {
            ++opened_;
            file.content = std::move(input);
        }
        store_.Keep(std::move(file), place);
    }

    EvidenceStore& store_;
    std::size_t opened_ = 0;
};

/// What the devices of one of several arguments are called.
std::string LabelOf(std::string argument) {
    while (argument.size() > 1 && argument.ends_with('/')) {
        argument.pop_back();
    }
    return argument;
}

} // namespace

Evidence ReadEvidence(const std::vector<std::string>& arguments, const InputLimits& limits, bool backups) {
    EvidenceStore store(limits);
    Reader reader(store);
    for (const std::string& argument : arguments) {
        reader.Add(argument, arguments.size() > 1 ? LabelOf(argument) : std::string(), backups);
    }
    return store.Take();
}

Evidence ReadPart(const EvidencePart& part, const InputLimits& limits) {
    EvidenceStore store(limits);
    Reader reader(store);
    if (part.isArchive) {
        reader.Add(part.path, {}, false);
    } else {
        reader.AddFiles({"", part.path, 0}, part.files);
    }
    return store.Take();
}

} // namespace NimaPost
