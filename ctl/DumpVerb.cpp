#include "catalogue/Files.h"
#include "ctl/Verbs.h"
#include "ctl/block/Snapshot.h"
#include "tools/base/Descriptor.h"
#include "tools/base/Interrupt.h"
#include "tools/base/Json.h"
#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace NimaCtl {

namespace {

struct DumpOptions {
    std::string file = Nima::Catalogue::kSysTraceDump.narrow;
    unsigned backups = 0;
};

/// What is wrong with it, or nothing.
std::string CheckSmallNumber(const std::string& text) {
    constexpr std::uint64_t kMost = 99;
    std::uint64_t number = 0;
    return NimaPost::ParseNumber(text, number) && number <= kMost
               ? std::string()
               : "\"" + text + "\" is no number from 0 to " + std::to_string(kMost);
}

/// FILE becomes FILE.1, and so on up to the number of backups. Until it is kept, the end of its lifetime
/// undoes all of this.
class BackupRoll {
  public:
    BackupRoll() = default;
    BackupRoll(const BackupRoll&) = delete;
    BackupRoll& operator=(const BackupRoll&) = delete;
    ~BackupRoll() {
        std::for_each(moves_.rbegin(), moves_.rend(),
                      [](const auto& move) { std::rename(move.second.c_str(), move.first.c_str()); });
    }

    bool Roll(const std::string& file, unsigned backups, std::string& problem) {
        const auto name = [&](unsigned number) {
            return number == 0 ? file : file + "." + std::to_string(number);
        };
        if (backups > 0 && !SetAside(name(backups), problem)) {
            return false;
        }
        for (unsigned number = backups; number > 0; --number) {
            if (!Move(name(number - 1), name(number), problem)) {
                return false;
            }
        }
        return true;
    }
    void Keep() {
        moves_.clear();
        if (!oldest_.empty()) {
            unlink(oldest_.c_str());
        }
    }

  private:
    /// The oldest goes only once all is done.
    bool SetAside(const std::string& path, std::string& problem) {
        struct stat status {};
        if (lstat(path.c_str(), &status) != 0 && errno == ENOENT) {
            return true;
        }
        std::string name = path + ".XXXXXX";
        const NimaPost::Descriptor place(mkostemp(name.data(), O_CLOEXEC));
        if (!place) {
            problem = path + ": " + std::strerror(errno);
            return false;
        }
        oldest_ = name;
        if (!Move(path, name, problem)) {
            unlink(name.c_str());
            return false;
        }
        return true;
    }
    bool Move(const std::string& from, const std::string& to, std::string& problem) {
        if (std::rename(from.c_str(), to.c_str()) == 0) {
            moves_.emplace_back(from, to);
            return true;
        }
        if (errno == ENOENT) {
            return true;
        }
        problem = from + ": " + std::strerror(errno);
        return false;
    }

    std::vector<std::pair<std::string, std::string>> moves_;
    std::string oldest_;
};

/// A device, or what a link leads to, is not renamed.
bool CanKeepBackups(const DumpOptions& options, std::string& problem) {
    struct stat status {};
    if (options.backups > 0 && lstat(options.file.c_str(), &status) == 0 && !S_ISREG(status.st_mode)) {
        problem = options.file + ": backups are kept of regular files alone";
        return false;
    }
    return true;
}

/// Returns false, with a reason and all files as they were, if that cannot be done.
bool WriteFile(const DumpOptions& options, const TraceBlock& block, Snapshot& snapshot,
               std::string& problem) {
    // From here on a signal removes what has been begun.
    const NimaPost::Interrupt interrupt;
    struct stat status {};
    fstat(block.File().Number(), &status);
    const NimaPost::FileIdentity input = NimaPost::IdentityOf(status);
    auto taken = TakeSnapshot(block, problem);
    NimaPost::OutputFile file;
    if (!taken || !file.Create(options.file, std::span(&input, 1), problem)) {
        return false;
    }
    snapshot = std::move(*taken);
    WriteDump(file.Out(), snapshot);
    const bool written = file.Out().Flush();
    if (interrupt.Requested()) {
        problem = "interrupted; " + options.file + " was not written";
        return false;
    }
    if (!written) {
        problem = options.file + ": cannot be written";
        return false;
    }
    BackupRoll roll;
    if (!roll.Roll(options.file, options.backups, problem) || !file.Finish(problem)) {
        return false;
    }
    roll.Keep();
    return true;
}

int RunDump(Context& context, const DumpOptions& options) {
    std::string problem;
    const auto block = TraceBlock::Open(context.directory, Access::kRead, problem);
    Snapshot snapshot;
    if (!block || !IsNoSegment(options.file, problem) || !CanKeepBackups(options, problem) ||
        !WriteFile(options, *block, snapshot, problem)) {
        return Refuse(context, problem);
    }
    AddBlanked(snapshot.blanked, context.findings);
    TellOfFile(context, options.file, NimaPost::Counted(snapshot.entries.size(), "entry"));
    return Finish(context, {{"file", NimaPost::ToUtf8(options.file)},
                            {"entries", snapshot.entries.size()},
                            {"overwritten_slots", snapshot.blanked}});
}

} // namespace

void AddDumpVerb(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<DumpOptions>();
    CLI::App* verb = AddVerb(app, context, "dump", "Copies the binary trace while it goes on");
    AddOutputOption(*verb, "FILE", options->file, "Where to, \"SysTrace.bin\" by default");
    AddOption(*verb, "--backups", options->backups, "Keep N earlier files, as FILE.1 and so on")
        .TypeName("N")
        .Check(CheckSmallNumber);
    OnCall(*verb, [&run, options] { run = [options](Context& c) { return RunDump(c, *options); }; });
}

} // namespace NimaCtl
