#include "catalogue/Files.h"
#include "catalogue/SysTrace.h"
#include "ctl/FilterText.h"
#include "ctl/LevelWords.h"
#include "ctl/Manifest.h"
#include "ctl/Progress.h"
#include "ctl/RingsText.h"
#include "ctl/TemporaryLevels.h"
#include "ctl/Verbs.h"
#include "ctl/block/ClaimCounter.h"
#include "ctl/block/Snapshot.h"
#include "tools/base/Interrupt.h"
#include "tools/base/Json.h"
#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"
#include "tools/words/Words.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <functional>
#include <memory>
#include <thread>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace NimaCtl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kRingsName = "rings.txt";
constexpr std::chrono::milliseconds kLookForEnd{100};

struct RecordOptions {
    std::chrono::nanoseconds time{};
    std::vector<std::string> levels;
    std::string folder;
    std::chrono::nanoseconds wait{kUsualWait};
};

/// What a recording brought.
struct Recording {
    Clocks begin;
    Clocks end;
    std::uint64_t claimed = 0;    ///< entries
    std::uint64_t sinceClear = 0; ///< those after the trace was cleared last
    bool cleared = false;
    bool interrupted = false;
    bool levelsLost = false;
    std::optional<Snapshot> trace;

    double Seconds() const { return static_cast<double>(end.monotonic - begin.monotonic) / 1e9; }
};

/// The folder for the result: a new one, which is gone again if nothing came into it, or an empty one.
class Folder {
  public:
    Folder() = default;
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        if (!made_.empty()) {
            rmdir(made_.c_str());
        }
    }

    bool Make(const std::string& path, std::string& problem) {
        if (mkdir(path.c_str(), 0777) == 0) {
            made_ = path;
            return true;
        }
        const std::string reason = errno == EEXIST ? WhyNotThere(path) : std::strerror(errno);
        problem = path + ": " + reason;
        return reason.empty();
    }

  private:
    /// Why a folder that is there will not do; empty if it will.
    static std::string WhyNotThere(const std::string& path) {
        std::error_code error;
        if (!std::filesystem::is_directory(path, error)) {
            return "is there already, and is no folder";
        }
        const bool empty = std::filesystem::is_empty(path, error);
        if (error) {
            return error.message();
        }
        if (!empty) {
            return "is there already, and is not empty";
        }
        return access(path.c_str(), W_OK | X_OK) == 0 ? "" : std::strerror(errno);
    }

    std::string made_;
};

/// Waits for the time's end, an interrupt, or the end of the segment.
void Wait(const TraceBlock& block, const TemporaryLevels& levels, std::chrono::nanoseconds time,
          const NimaPost::Interrupt& interrupt, Recording& recording) {
    Progress progress(time);
    ClaimCounter claims(block);
    const Clock::time_point begin = Clock::now();
    bool open = true;
    for (Clock::duration passed{}; passed < time; passed = Clock::now() - begin) {
        if (interrupt.Requested() || block.File().Lost()) {
            recording.interrupted = true;
            break;
        }
        progress.Show(passed, claims.Claimed());
        std::this_thread::sleep_for(std::min<Clock::duration>(kLookForEnd, time - passed));
        claims.Look();
        // A dump takes the levels away and brings them back; not so if they are missing twice.
        const bool before = std::exchange(open, levels.AreOpen());
        recording.levelsLost = recording.levelsLost || (!before && !open);
    }
    claims.Look();
    recording.claimed = claims.Claimed();
    recording.sinceClear = claims.SinceClear();
    recording.cleared = claims.Cleared();
}

/// Writes the files of the result and lists them in the manifest.
class Files {
  public:
    Files(std::string folder, Manifest& manifest) : folder_(std::move(folder)), manifest_(manifest) {}

    bool Write(const std::string& name, const std::function<void(Output&)>& write, std::string& problem) {
        const std::string path = folder_ + '/' + name;
        NimaPost::OutputFile file;
        if (!file.Create(path, {}, problem)) {
            return false;
        }
        write(file.Out());
        if (!file.Finish(problem)) {
            return false;
        }
        manifest_.files.push_back(DescribeFile(path, name));
        return true;
    }

  private:
    std::string folder_;
    Manifest& manifest_;
};

Json LevelsJson(const Filter& levels, const Names& names) {
    Json list = Json::array();
    for (std::uint32_t level = 0; level < Nima::Catalogue::kTraceLevels; ++level) {
        for (std::uint32_t component = 0; component < Nima::Catalogue::kComponents; ++component) {
            const std::uint32_t word = levels[Nima::Catalogue::FilterWord(level, component)];
            if ((word & Nima::Catalogue::FilterBit(component)) != 0) {
                list.push_back({{"component", component},
                                {"component_name", NimaPost::ToUtf8(names.Component(component))},
                                {"level", level}});
            }
        }
    }
    return list;
}

Json RecordingJson(const Recording& recording, const Filter& opened, const Names& names) {
    return {{"begin_counter", recording.begin.Counter()},
            {"end_counter", recording.end.Counter()},
            {"seconds", recording.Seconds()},
            {"interrupted", recording.interrupted},
            {"cleared", recording.cleared},
            {"opened_levels", LevelsJson(opened, names)}};
}

/// The rings and the manifest, which are worth less than the trace.
bool WriteRest(Context& context, Files& files, Manifest& manifest, std::string& problem) {
    std::string reason;
    const auto rings = ReadRings(context.directory, reason);
    if (!rings) {
        context.findings.Remark("no-rings", "No rings were recorded: " + reason + ".");
    } else if (!files.Write(
                   kRingsName, [&](Output& out) { WriteRings(out, *rings); }, problem)) {
        return false;
    }
    FindProcesses(manifest, context.directory);
    return files.Write(
        kManifestName, [&](Output& out) { out.Write(manifest.ToJson().dump(1) + "\n"); }, problem);
}

/// Returns false, with a reason, if there is not even the trace.
bool WriteFolder(Context& context, const RecordOptions& options, const Recording& recording,
                 const Filter& opened, std::string& problem) {
    Manifest manifest;
    manifest.directory = context.directory;
    manifest.clocks = recording.end;
    manifest.recording = RecordingJson(recording, opened, context.names);
    Files files(options.folder, manifest);
    if (!files.Write(
            Nima::Catalogue::kSysTraceDump.narrow, [&](Output& out) { WriteDump(out, *recording.trace); },
            problem)) {
        return false;
    }
    manifest.files.back().blankedSlots = recording.trace->blanked;
    if (!WriteRest(context, files, manifest, problem)) {
        context.findings.Damage("cannot-write", "The folder lacks files: " + problem + ".");
    }
    return true;
}

void AddFindings(const Recording& recording, Findings& findings) {
    if (recording.interrupted) {
        char text[80];
        std::snprintf(text, sizeof(text), "The recording was ended after %.1f s.", recording.Seconds());
        findings.Damage("interrupted", text);
    }
    if (recording.levelsLost) {
        findings.Remark("levels-lost",
                        "Some of the levels were closed meanwhile: by a process of the device, or by two "
                        "dumps at once, which lose the filter.");
    }
    if (recording.cleared) {
        findings.Remark("trace-cleared",
                        "The trace was cleared meanwhile: what had been traced before is gone, and more was "
                        "traced than was counted.");
    }
    if (recording.sinceClear > kEntries) {
        findings.Remark("overwritten", "More was traced than the block holds: the first " +
                                           NimaPost::Counted(recording.sinceClear - kEntries, "entry") +
                                           (recording.cleared ? " after that" : " of the recording") +
                                           " are overwritten.");
    }
    AddBlanked(recording.trace->blanked, findings);
}

int Report(Context& context, const RecordOptions& options, const Recording& recording, const Filter& opened) {
    if (!context.json) {
        context.out.Line("opened for the time  " +
                         NimaPost::Printable(NimaPost::OpenLevelsInWords(opened, context.names)));
        context.out.Line(NimaPost::Printable(options.folder) + ": " + (recording.cleared ? "at least " : "") +
                         NimaPost::Counted(recording.claimed, "entry") + " in the time");
    }
    Json json{{"folder", NimaPost::ToUtf8(options.folder)},
              {"claimed_entries", recording.claimed},
              {"entries", recording.trace->entries.size()},
              {"overwritten_slots", recording.trace->blanked}};
    json.update(RecordingJson(recording, opened, context.names));
    return Finish(context, json);
}

/// What an engineer should know before the time is over.
void TellWhatIsHeld(Context& context, const TraceBlock& block) {
    context.findings.Remark(
        "filter-held",
        "Only what is live is recorded, and the saved filter lets more through. " + SetAsideText() +
            " Live: " + NimaPost::OpenLevelsInWords(block.ReadFilters().live, context.names) + ".");
    Tell(context);
}

/// With the levels open. Returns false, with a reason, if there is nothing to keep.
bool Record(Context& context, const RecordOptions& options, const TraceBlock& block, TemporaryLevels& levels,
            const NimaPost::Interrupt& interrupt, Recording& recording, std::string& problem) {
    if (levels.Held()) {
        TellWhatIsHeld(context, block);
    }
    recording.begin = ReadClocks();
    Wait(block, levels, options.time, interrupt, recording);
    recording.end = ReadClocks();
    recording.trace = TakeSnapshot(block, problem);
    // Closed first: writing may take long, or fail.
    std::string openProblem;
    if (!levels.Close(openProblem)) {
        context.findings.Damage("levels-open", "Levels may still be open: " + openProblem +
                                                   ". The next call of nima-ctl closes them.");
    }
    return recording.trace && WriteFolder(context, options, recording, levels.Opened(), problem);
}

int RunRecord(Context& context, const RecordOptions& options) {
    // Whenever a signal comes from here on, the levels are as before in the end.
    const NimaPost::Interrupt interrupt;
    std::string problem;
    FilterChange wanted;
    if (!OpenPairs(context.names, options.levels, wanted, problem)) {
        return Refuse(context, problem);
    }
    const auto block = TraceBlock::Open(context.directory, Access::kWrite, problem);
    Folder folder;
    if (!block || !folder.Make(options.folder, problem)) {
        return Refuse(context, problem);
    }
    TemporaryLevels levels(*block, context.directory, options.wait, [&] { return interrupt.Requested(); });
    if (!levels.Open(wanted.set, problem)) {
        return Refuse(context, problem);
    }
    if (interrupt.Requested()) {
        const bool closed = levels.Close(problem);
        return Refuse(context, closed ? "interrupted before anything was recorded; the levels are as before"
                                      : "levels may still be open: " + problem);
    }
    Recording recording;
    if (!Record(context, options, *block, levels, interrupt, recording, problem)) {
        return Refuse(context, problem);
    }
    AddFindings(recording, context.findings);
    return Report(context, options, recording, levels.Opened());
}

} // namespace

void AddRecordVerb(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<RecordOptions>();
    CLI::App* verb = AddVerb(app, context, "record", "Opens levels for a time and keeps what was traced");
    AddTimeOption(*verb, "--for", options->time, std::chrono::nanoseconds(1), "How long, such as 30s")
        .Required();
    AddOption(*verb, "--level", options->levels, "Levels to open, such as 5:2 or Engine:all")
        .TypeName("COMPONENT:LEVEL")
        .Required();
    AddOption(*verb, "-o,--output", options->folder, "The folder for the result, new or empty").Required();
    AddWaitOption(*verb, options->wait, "How long to wait for the end of a dump, 10 by default");
    OnCall(*verb, [&run, options] { run = [options](Context& c) { return RunRecord(c, *options); }; });
}

} // namespace NimaCtl
