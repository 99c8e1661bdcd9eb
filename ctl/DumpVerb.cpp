#include "catalogue/Files.h"
#include "ctl/Verbs.h"
#include "ctl/block/Snapshot.h"
#include "tools/base/Json.h"
#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include <sys/stat.h>

namespace NimaCtl {

namespace {

struct Options {
    std::string file = Nima::Catalogue::kSysTraceDump.narrow;
    unsigned backups = 0;
};

/// FILE becomes FILE.1, and so on up to the number of backups.
bool RollBackups(const std::string& file, unsigned backups, std::string& problem) {
    for (unsigned number = backups; number > 0; --number) {
        const std::string from = number == 1 ? file : file + "." + std::to_string(number - 1);
        const std::string to = file + "." + std::to_string(number);
        if (std::rename(from.c_str(), to.c_str()) != 0 && errno != ENOENT) {
            problem = from + ": " + std::strerror(errno);
            return false;
        }
    }
    return true;
}

/// A device, or what a link leads to, is not renamed.
bool CanKeepBackups(const Options& options, std::string& problem) {
    struct stat status {};
    if (options.backups > 0 && lstat(options.file.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        problem = options.file + ": backups are kept of regular files alone";
        return false;
    }
    return true;
}

int RunDump(Context& context, const Options& options) {
    std::string problem;
    const auto block = TraceBlock::Open(context.directory, Access::kRead, problem);
    if (!block || !IsNoSegment(options.file, problem) || !CanKeepBackups(options, problem)) {
        return Refuse(context, problem);
    }
    struct stat status {};
    fstat(block->File().Number(), &status);
    const NimaPost::FileIdentity input = NimaPost::IdentityOf(status);
    NimaPost::OutputFile file;
    const auto snapshot = TakeSnapshot(*block, problem);
    if (!snapshot || !file.Create(options.file, std::span(&input, 1), problem)) {
        return Refuse(context, problem);
    }
    WriteDump(file.Out(), *snapshot);
    if (!file.Out().Flush()) {
        return Refuse(context, options.file + ": cannot be written");
    }
    if (!RollBackups(options.file, options.backups, problem) || !file.Finish(problem)) {
        return Refuse(context, problem);
    }
    if (context.json) {
        PrintJson(context, {{"file", NimaPost::ToUtf8(options.file)},
                            {"entries", snapshot->entries.size()},
                            {"overwritten", snapshot->blanked}});
    } else {
        context.out.Line(NimaPost::Printable(options.file) + ": " + std::to_string(snapshot->entries.size()) +
                         " entries");
    }
    Findings findings;
    AddBlanked(snapshot->blanked, findings);
    PrintFindings(context, findings);
    return kExitFine;
}

} // namespace

void AddDumpVerb(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* verb = AddVerb(app, context, "dump", "Copies the binary trace while it goes on");
    AddOption(*verb, "FILE", options->file, "Where to, \"SysTrace.bin\" by default");
    AddOption(*verb, "--backups", options->backups, "Keep N earlier files, as FILE.1 and so on")
        .TypeName("N")
        .Between(0U, 99U);
    OnCall(*verb, [&run, options] { run = [options](Context& c) { return RunDump(c, *options); }; });
}

} // namespace NimaCtl
