#include "catalogue/Files.h"
#include "ctl/Archive.h"
#include "ctl/Manifest.h"
#include "ctl/Verbs.h"
#include "ctl/block/Snapshot.h"
#include "tools/base/InputFile.h"
#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string_view>

#include <sys/stat.h>

namespace NimaCtl {

namespace {

using NimaPost::InputFile;

constexpr const char* kManifestName = "manifest.json";
constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::size_t kPiece = 1 << 16;
constexpr std::size_t kMostFiles = 4096;

struct Options {
    std::string directory;
    std::string output;
    std::vector<std::string> programs;
};

std::string_view BytesOf(const void* data, std::size_t size) {
    return {static_cast<const char*>(data), size};
}

/// The names in a directory, sorted; sub-directories are no part of what the library leaves.
bool List(const std::string& directory, std::vector<CollectedFile>& files, std::string& problem) {
    std::error_code error;
    std::filesystem::directory_iterator each(directory, error);
    for (; !error && each != std::filesystem::directory_iterator(); each.increment(error)) {
        struct stat status {};
        CollectedFile file;
        file.name = each->path().filename();
        if (lstat(each->path().c_str(), &status) != 0 || S_ISDIR(status.st_mode)) {
            continue;
        }
        file.bytes = static_cast<std::uint64_t>(status.st_size);
        file.modifiedNanoseconds = status.st_mtim.tv_sec * kSecond + status.st_mtim.tv_nsec;
        file.problem = !S_ISREG(status.st_mode)           ? "no regular file"
                       : file.name == kManifestName       ? "its name is that of the archive's own manifest"
                       : file.bytes > Archive::kMostBytes ? "too large"
                                                          : "";
        file.inArchive = file.problem.empty();
        files.push_back(std::move(file));
    }
    if (error || files.size() > kMostFiles) {
        problem = directory + ": " +
                  (error ? error.message() : "more than " + std::to_string(kMostFiles) + " files");
        return false;
    }
    std::sort(files.begin(), files.end(), [](const auto& a, const auto& b) { return a.name < b.name; });
    return true;
}

class Collector {
  public:
    Collector(Archive& archive, Manifest& manifest) : archive_(archive), manifest_(manifest) {}

    void Add(CollectedFile& file) {
        std::string problem;
        const auto input = InputFile::Open(manifest_.directory + '/' + file.name, problem);
        if (!input) {
            file.problem = problem;
            file.inArchive = false;
            return;
        }
        // What is appended from now on is left out.
        file.bytes = std::min(input->Size(), Archive::kMostBytes);
        archive_.Begin(file.name, file.bytes, file.modifiedNanoseconds / kSecond);
        const bool isTrace = file.name == Nima::Catalogue::kSysTraceSegment.narrow;
        std::uint64_t written = isTrace ? AddTrace(file) : 0;
        std::string piece;
        while (written < file.bytes) {
            piece.resize(static_cast<std::size_t>(std::min<std::uint64_t>(kPiece, file.bytes - written)));
            // What cannot be read is zero: the archive's head has already named the size.
            const std::size_t got = input->ReadAt(written, piece);
            std::fill(piece.begin() + static_cast<std::ptrdiff_t>(got), piece.end(), '\0');
            archive_.Write(piece);
            written += piece.size();
        }
        archive_.End();
        if (file.problem.empty()) {
            file.problem = input->ReadProblem();
        }
    }

  private:
    /// Writers go on while their block is copied, so it is copied as `dump` does. A damaged block is copied
    /// as it is.
    std::uint64_t AddTrace(CollectedFile& file) {
        std::string problem;
        const auto block = TraceBlock::Open(manifest_.directory, Access::kRead, problem);
        const auto snapshot = block ? TakeSnapshot(*block, problem) : std::nullopt;
        if (!snapshot || file.bytes < kBlockBytes) {
            return 0;
        }
        file.blankedSlots = snapshot->blanked;
        archive_.Write(BytesOf(&snapshot->header, sizeof(snapshot->header)));
        archive_.Write(BytesOf(snapshot->entries.data(), snapshot->entries.size() * sizeof(SysTraceEntry)));
        archive_.Write(std::string((kEntries - snapshot->entries.size()) * sizeof(SysTraceEntry), '\0'));
        return kBlockBytes;
    }

    Archive& archive_;
    Manifest& manifest_;
};

/// An earlier archive in the same directory is no evidence.
void LeaveOut(const std::string& path, Manifest& manifest) {
    struct stat status {};
    struct stat other {};
    if (stat(path.c_str(), &status) != 0) {
        return;
    }
    for (CollectedFile& file : manifest.files) {
        if (stat((manifest.directory + '/' + file.name).c_str(), &other) == 0 &&
            NimaPost::IdentityOf(other) == NimaPost::IdentityOf(status)) {
            file.inArchive = false;
            file.problem = "the archive itself, from an earlier call";
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

int Report(Context& context, const Options& options, const Manifest& manifest) {
    Findings findings;
    std::size_t whole = 0;
    for (const CollectedFile& file : manifest.files) {
        whole += file.inArchive ? 1 : 0;
        if (file.inArchive && !file.problem.empty()) {
            findings.Damage("cannot-read", file.name + ": " + file.problem + ".");
        } else if (!file.problem.empty()) {
            findings.Remark("left-out", file.name + " was left out: " + file.problem + ".");
        }
        AddBlanked(file.blankedSlots, findings);
    }
    if (context.json) {
        PrintJson(context, {{"file", NimaPost::ToUtf8(options.output)}, {"manifest", manifest.ToJson()}});
    } else {
        context.out.Line(NimaPost::Printable(options.output) + ": " + NimaPost::Counted(whole, "file") +
                         " and " + kManifestName);
    }
    PrintFindings(context, findings);
    return findings.damage.empty() ? kExitFine : kExitDamaged;
}

int RunCollect(Context& context, const Options& options) {
    Manifest manifest;
    manifest.directory = options.directory.empty() ? context.directory : options.directory;
    manifest.programs = options.programs;
    std::string problem;
    if (!List(manifest.directory, manifest.files, problem)) {
        return Refuse(context, problem);
    }
    LeaveOut(options.output, manifest);
    if (std::none_of(manifest.files.begin(), manifest.files.end(),
                     [](const CollectedFile& file) { return file.inArchive; })) {
        return Refuse(context, manifest.directory + ": holds no file to collect");
    }
    NimaPost::OutputFile file;
    if (!file.Create(options.output, Segments(manifest.directory), problem)) {
        return Refuse(context, problem);
    }
    manifest.clocks = ReadClocks();
    FindProcesses(manifest, manifest.directory);
    Archive archive(file.Out());
    Collector collector(archive, manifest);
    for (CollectedFile& each : manifest.files) {
        if (each.inArchive) {
            collector.Add(each);
        }
    }
    // Last, since it says what became of the files.
    archive.Add(kManifestName, manifest.ToJson().dump(1) + "\n", manifest.clocks.wall / kSecond);
    archive.Finish();
    if (!file.Finish(problem)) {
        return Refuse(context, problem);
    }
    return Report(context, options, manifest);
}

} // namespace

void AddCollectVerb(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* verb = AddVerb(app, context, "collect", "Packs everything in the directory, with a manifest");
    verb->add_option("DIRECTORY", options->directory, "Instead of --directory");
    verb->add_option("-o,--output", options->output, "The archive, such as unit.tar.gz")->required();
    verb->add_option("--program", options->programs, "Note the build ids of these programs and libraries");
    verb->callback([&run, options] { run = [options](Context& c) { return RunCollect(c, *options); }; });
}

} // namespace NimaCtl
