#include "catalogue/Files.h"
#include "ctl/Archive.h"
#include "ctl/Manifest.h"
#include "ctl/Verbs.h"
#include "ctl/block/Snapshot.h"
#include "tools/base/InputFile.h"
#include "tools/base/Interrupt.h"
#include "tools/base/Json.h"
#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include <sys/resource.h>
#include <sys/stat.h>

namespace NimaCtl {

namespace {

using NimaPost::InputFile;

constexpr std::size_t kPiece = 1 << 16;
constexpr std::size_t kMostFiles = 4096;
constexpr int kAttempts = 10;

struct CollectOptions {
    std::string output;
    std::vector<std::string> programs;
};

std::string_view BytesOf(const void* data, std::size_t size) {
    return {static_cast<const char*>(data), size};
}

/// A file of the directory, opened early: what is renamed later is still the same file.
struct Member {
    CollectedFile file;
    NimaPost::FileIdentity identity;
    std::optional<InputFile> input;

    bool Is(const Member& other) const { return file.name == other.file.name && identity == other.identity; }
};

/// The names in a directory, sorted; sub-directories are no part of what the library leaves.
bool List(const std::string& directory, std::vector<Member>& members, std::string& problem) {
    members.clear();
    std::error_code error;
    std::filesystem::directory_iterator each(directory, error);
    for (; !error && each != std::filesystem::directory_iterator(); each.increment(error)) {
        struct stat status {};
        if (lstat(each->path().c_str(), &status) != 0 || S_ISDIR(status.st_mode)) {
            continue;
        }
        Member member;
        member.identity = NimaPost::IdentityOf(status);
        CollectedFile& file = member.file;
        file.name = each->path().filename();
        file.bytes = static_cast<std::uint64_t>(status.st_size);
        file.modifiedNanoseconds = status.st_mtim.tv_sec * kSecond + status.st_mtim.tv_nsec;
        file.problem = !S_ISREG(status.st_mode)     ? "no regular file"
                       : file.name == kManifestName ? "its name is that of the archive's own manifest"
                                                    : "";
        file.inArchive = file.problem.empty();
        members.push_back(std::move(member));
    }
    if (error || members.size() > kMostFiles) {
        problem = directory + ": " +
                  (error ? error.message() : "more than " + std::to_string(kMostFiles) + " files");
        return false;
    }
    std::sort(members.begin(), members.end(),
              [](const auto& a, const auto& b) { return a.file.name < b.file.name; });
    return true;
}

void Open(const std::string& directory, Member& member) {
    const std::string path = directory + '/' + member.file.name;
    member.file.problem.clear();
    member.input = InputFile::Open(path, member.file.problem);
    if (!member.input && member.file.problem.starts_with(path + ": ")) {
        member.file.problem.erase(0, path.size() + 2);
    }
}

/// Opens every file. A device may roll its logs meanwhile, so this is repeated until no name has changed its
/// file. `moved` says that it never was so.
bool OpenAll(const std::string& directory, std::vector<Member>& members, bool& moved, std::string& problem) {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) == 0) {
        limit.rlim_cur = limit.rlim_max;
        setrlimit(RLIMIT_NOFILE, &limit);
    }
    moved = true;
    for (int attempt = 0; attempt < kAttempts && moved; ++attempt) {
        if (!List(directory, members, problem)) {
            return false;
        }
        for (Member& member : members) {
            if (member.file.inArchive) {
                Open(directory, member);
            }
        }
        std::vector<Member> again;
        moved = !List(directory, again, problem) ||
                !std::equal(members.begin(), members.end(), again.begin(), again.end(),
                            [](const Member& a, const Member& b) {
                                return a.Is(b) && (!a.input || a.input->Identity() == b.identity);
                            });
    }
    return true;
}

class Collector {
  public:
    Collector(Archive& archive, const std::string& directory, const std::function<bool()>& isToEnd)
        : archive_(archive), directory_(directory), isToEnd_(isToEnd) {}

    void Add(Member& member) {
        CollectedFile& file = member.file;
        if (!member.input) {
            Open(directory_, member); // there may have been too many open files
        }
        if (!member.input) {
            file.inArchive = false;
            file.unreadable = true;
            return;
        }
        const InputFile& input = *member.input;
        // What is appended from now on is left out.
        file.bytes = input.Size();
        archive_.Begin(file.name, file.bytes, file.modifiedNanoseconds / kSecond);
        const bool isTrace = file.name == Nima::Catalogue::kSysTraceSegment.narrow;
        std::uint64_t written = isTrace ? AddTrace(file) : 0;
        std::string piece;
        while (written < file.bytes && !isToEnd_()) {
            piece.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, file.bytes - written)));
            // What cannot be read is zero: the archive's head has already named the size.
            const std::size_t got = input.ReadAt(written, piece);
            std::fill(piece.begin() + static_cast<std::ptrdiff_t>(got), piece.end(), '\0');
            archive_.Write(piece);
            written += piece.size();
        }
        archive_.End();
        file.problem = input.ReadProblem();
        member.input.reset();
    }

  private:
    /// Writers go on while their block is copied, so it is copied as `dump` does. A damaged block is copied
    /// as it is.
    std::uint64_t AddTrace(CollectedFile& file) {
        std::string problem;
        const auto block = TraceBlock::Open(directory_, Access::kRead, problem);
        const auto snapshot = block ? TakeSnapshot(*block, problem) : std::nullopt;
        if (!snapshot || file.bytes < kBlockBytes) {
            file.damage = problem;
            return 0;
        }
        file.blankedSlots = snapshot->blanked;
        archive_.Write(BytesOf(&snapshot->header, sizeof(snapshot->header)));
        archive_.Write(BytesOf(snapshot->entries.data(), snapshot->entries.size() * sizeof(SysTraceEntry)));
        archive_.Write(std::string((kEntries - snapshot->entries.size()) * sizeof(SysTraceEntry), '\0'));
        return kBlockBytes;
    }

    Archive& archive_;
    const std::string& directory_;
    const std::function<bool()>& isToEnd_;
};

/// An earlier archive in the same directory is no evidence.
void LeaveOut(const std::string& path, std::vector<Member>& members) {
    struct stat status {};
    if (stat(path.c_str(), &status) != 0) {
        return;
    }
    for (Member& member : members) {
        if (member.identity == NimaPost::IdentityOf(status)) {
            member.file.inArchive = false;
            member.file.problem = "the archive itself, from an earlier call";
        }
    }
}

std::vector<NimaPost::FileIdentity> Segments(const std::string& directory) {
    std::vector<NimaPost::FileIdentity> identities;
    for (const char* name :
         {Nima::Catalogue::kSysTraceSegment.narrow, Nima::Catalogue::kRingSegment.narrow}) {
        struct stat status {};
        if (stat((directory + '/' + name).c_str(), &status) == 0) {
            identities.push_back(NimaPost::IdentityOf(status));
        }
    }
    return identities;
}

std::size_t FilesIn(const Manifest& manifest) {
    return static_cast<std::size_t>(std::count_if(manifest.files.begin(), manifest.files.end(),
                                                  [](const CollectedFile& file) { return file.inArchive; }));
}

void AddFindings(const Manifest& manifest, Findings& findings) {
    for (const CollectedFile& file : manifest.files) {
        if (file.unreadable) {
            findings.Damage("left-out", file.name + " was left out: " + file.problem + ".");
        } else if (file.inArchive && !file.problem.empty()) {
            findings.Damage("cannot-read", file.name + ": " + file.problem + ".");
        } else if (!file.problem.empty()) {
            findings.Remark("left-out", file.name + " was left out: " + file.problem + ".");
        }
        if (!file.damage.empty()) {
            findings.Remark("no-block", "The binary trace was packed as it is: " + file.damage + ".");
        }
        AddBlanked(file.blankedSlots, findings);
    }
}

/// Returns false, with a reason and no file under the output's name, if that cannot be done.
bool Pack(const CollectOptions& options, std::vector<Member>& members, Manifest& manifest,
          std::string& problem) {
    // From here on a signal removes what has been begun.
    const NimaPost::Interrupt interrupt;
    NimaPost::OutputFile file;
    if (!IsNoSegment(options.output, problem) ||
        !file.Create(options.output, Segments(manifest.directory), problem)) {
        return false;
    }
    manifest.clocks = ReadClocks();
    FindProcesses(manifest, manifest.directory);
    int error = 0;
    const std::function<bool()> isToEnd = [&] {
        // Asked often, so that a full disk is noticed before everything has been read.
        if (error == 0 && !file.Out().Flush()) {
            error = errno;
        }
        return error != 0 || interrupt.Requested();
    };
    Archive archive(file.Out());
    Collector collector(archive, manifest.directory, isToEnd);
    for (Member& member : members) {
        if (member.file.inArchive && !isToEnd()) {
            collector.Add(member);
        }
        manifest.files.push_back(member.file);
    }
    if (isToEnd()) {
        problem =
            error != 0 ? options.output + ": " + std::strerror(error) : "interrupted; no archive was left";
        return false;
    }
    if (FilesIn(manifest) == 0) {
        problem = manifest.directory + ": none of its files can be read";
        return false;
    }
    // Last, since it says what became of the files.
    archive.Add(kManifestName, manifest.ToJson().dump(1) + "\n", manifest.clocks.wall / kSecond);
    archive.Finish();
    return file.Finish(problem);
}

int RunCollect(Context& context, const CollectOptions& options) {
    Manifest manifest;
    manifest.directory = context.directory;
    manifest.programs = options.programs;
    std::string problem;
    std::vector<Member> members;
    bool moved = false;
    if (!OpenAll(manifest.directory, members, moved, problem)) {
        return Refuse(context, problem);
    }
    LeaveOut(options.output, members);
    if (std::none_of(members.begin(), members.end(),
                     [](const Member& member) { return member.file.inArchive; })) {
        return Refuse(context, manifest.directory + ": holds no file to collect");
    }
    if (!Pack(options, members, manifest, problem)) {
        return Refuse(context, problem);
    }
    if (moved) {
        context.findings.Damage("files-moved",
                                "Files were renamed again and again while they were opened: one may be "
                                "missing, or be there twice.");
    }
    for (const std::string& program : options.programs) {
        if (!InputFile::Open(program, problem)) {
            context.findings.Damage("cannot-open", problem + ".");
        }
    }
    AddFindings(manifest, context.findings);
    TellOfFile(context, options.output,
               NimaPost::Counted(FilesIn(manifest), "file") + " and " + kManifestName);
    return Finish(context, {{"file", NimaPost::ToUtf8(options.output)}, {"manifest", manifest.ToJson()}});
}

} // namespace

void AddCollectVerb(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<CollectOptions>();
    CLI::App* verb = AddVerb(app, context, "collect", "Packs everything in the directory, with a manifest");
    AddOption(*verb, "DIRECTORY", context.directory, "Instead of --directory");
    AddOutputOption(*verb, "-o,--output", options->output, "The archive, such as unit.tar.gz").Required();
    AddOption(*verb, "--program", options->programs,
              "Note the build ids of this program or library; may be given again")
        .TypeName("FILE")
        .OnePerUse();
    OnCall(*verb, [&run, options] { run = [options](Context& c) { return RunCollect(c, *options); }; });
}

} // namespace NimaCtl
