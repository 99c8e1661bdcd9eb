#include "catalogue/Files.h"
#include "catalogue/SysTrace.h"
#include "ctl/FilterText.h"
#include "ctl/LevelWords.h"
#include "ctl/Manifest.h"
#include "ctl/Progress.h"
#include "ctl/RingsText.h"
#include "ctl/TemporaryLevels.h"
#include "ctl/Verbs.h"
#include "ctl/block/Snapshot.h"
#include "tools/base/Interrupt.h"
#include "tools/base/Json.h"
#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"
#include "tools/base/TimeText.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>

#include <sys/stat.h>
#include <unistd.h>

namespace NimaCtl {

namespace {

using Clock = std::chrono::steady_clock;

constexpr const char* kRingsName = "rings.txt";
constexpr const char* kManifestName = "manifest.json";
constexpr std::chrono::milliseconds kLook{100};

struct Options {
    std::string time;
    std::vector<std::string> levels;
    std::string folder;
    double wait = 10;
};

/// What a recording brought.
struct Recording {
    Clocks begin;
    Clocks end;
    std::uint32_t claimed = 0; ///< entries
    bool interrupted = false;
    bool levelsLost = false;
    std::optional<Snapshot> trace;

    double Seconds() const { return static_cast<double>(end.monotonic - begin.monotonic) / 1e9; }
};

/// A folder of its own for the result, which is gone again if nothing came into it.
class Folder {
  public:
    Folder() = default;
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() {
        if (!path_.empty()) {
            rmdir(path_.c_str());
        }
    }

    /// A folder that is there must be empty.
    bool Make(const std::string& path, std::string& problem) {
        if (mkdir(path.c_str(), 0777) == 0) {
            path_ = path;
            return true;
        }
        // Succeeds for an empty one alone, and asks at once whether it may be written.
        if (errno == EEXIST && rmdir(path.c_str()) == 0 && mkdir(path.c_str(), 0777) == 0) {
            path_ = path;
            return true;
        }
        problem = path + ": " +
                  (errno == ENOTEMPTY || errno == EEXIST ? "is there already, and is not empty"
                   : errno == ENOTDIR                    ? "is there already, and is no folder"
                                                         : std::strerror(errno));
        return false;
    }

  private:
    std::string path_;
};

/// Waits for the time's end, an interrupt, or the end of the segment.
void Wait(const TraceBlock& block, const TemporaryLevels& levels, std::chrono::nanoseconds time,
          const NimaPost::Interrupt& interrupt, Recording& recording) {
    Progress progress(time);
    const Clock::time_point begin = Clock::now();
    const std::uint32_t index = Load(block.Header().writeIndex);
    bool open = true;
    for (Clock::duration passed{}; passed < time; passed = Clock::now() - begin) {
        if (interrupt.Requested() || block.File().Lost()) {
            recording.interrupted = true;
            break;
        }
        recording.claimed = Load(block.Header().writeIndex) - index;
        progress.Show(passed, recording.claimed);
        std::this_thread::sleep_for(std::min<Clock::duration>(kLook, time - passed));
        // A dump takes the levels away and brings them back; not so if they are missing twice.
        const bool before = std::exchange(open, levels.AreOpen());
        recording.levelsLost = recording.levelsLost || (!before && !open);
    }
    recording.claimed = Load(block.Header().writeIndex) - index;
}

/// Writes a file of the result and adds it to the manifest.
bool WriteFile(Manifest& manifest, const std::string& name, const std::function<void(Output&)>& write,
               std::string& problem) {
    const std::string path = manifest.directory + '/' + name;
    NimaPost::OutputFile file;
    if (!file.Create(path, {}, problem)) {
        return false;
    }
    write(file.Out());
    if (!file.Finish(problem)) {
        return false;
    }
    manifest.files.push_back(DescribeFile(path, name));
    return true;
}

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
            {"opened_levels", LevelsJson(opened, names)}};
}

/// Everything but the trace itself is worth less than the trace, which is written first.
bool WriteFolder(const Context& context, const Options& options, const Recording& recording,
                 const Filter& opened, Findings& findings, std::string& problem) {
    Manifest manifest;
    manifest.directory = options.folder;
    manifest.clocks = recording.end;
    manifest.recording = RecordingJson(recording, opened, context.names);
    if (!WriteFile(
            manifest, Nima::Catalogue::kSysTraceDump.narrow,
            [&](Output& out) { WriteDump(out, *recording.trace); }, problem)) {
        return false;
    }
    manifest.files.back().blankedSlots = recording.trace->blanked;
    std::string reason;
    const auto rings = ReadRings(context.directory, reason);
    if (!rings) {
        findings.Remark("no-rings", "No rings were recorded: " + reason + ".");
    } else if (!WriteFile(
                   manifest, kRingsName, [&](Output& out) { WriteRings(out, *rings); }, problem)) {
        return false;
    }
    FindProcesses(manifest, context.directory);
    return WriteFile(
        manifest, kManifestName, [&](Output& out) { out.Write(manifest.ToJson().dump(1) + "\n"); }, problem);
}

void AddRemarks(const Recording& recording, Findings& findings) {
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
    if (recording.claimed > kEntries) {
        findings.Remark("overwritten", "More was traced than the block holds: the first " +
                                           NimaPost::Counted(recording.claimed - kEntries, "entry") +
                                           " of the recording were overwritten.");
    }
    AddBlanked(recording.trace->blanked, findings);
}

int Report(Context& context, const Options& options, const Recording& recording, const Filter& opened,
           const Findings& findings) {
    if (context.json) {
        Json json{{"folder", NimaPost::ToUtf8(options.folder)},
                  {"entries", recording.trace->entries.size()},
                  {"overwritten", recording.trace->blanked}};
        json.update(RecordingJson(recording, opened, context.names));
        PrintJson(context, json);
    } else {
        context.out.Line("opened for the time  " + FilterText(opened, context.names));
        context.out.Line(NimaPost::Printable(options.folder) + ": " +
                         NimaPost::Counted(recording.claimed, "entry") + " in the time");
    }
    PrintFindings(context, findings);
    return findings.damage.empty() ? kExitFine : kExitDamaged;
}

int RunRecord(Context& context, const Options& options) {
    std::string problem;
    FilterChange wanted;
    const std::chrono::nanoseconds time(NimaPost::ParseDuration(options.time).value_or(0));
    if (time.count() <= 0 || time.count() > NimaPost::kDay) {
        return Refuse(context, "no time \"" + options.time + "\": such as 30s, 500ms, 5m, at most a day");
    }
    if (!OpenPairs(context.names, options.levels, wanted, problem)) {
        return Refuse(context, problem);
    }
    const auto block = TraceBlock::Open(context.directory, Access::kWrite, problem);
    Folder folder;
    if (!block || !folder.Make(options.folder, problem)) {
        return Refuse(context, problem);
    }
    Recording recording;
    const NimaPost::Interrupt interrupt;
    TemporaryLevels levels(*block, context.directory, SecondsOf(options.wait));
    if (!levels.Open(wanted.set, problem)) {
        return Refuse(context, problem);
    }
    recording.begin = ReadClocks();
    Wait(*block, levels, time, interrupt, recording);
    recording.end = ReadClocks();
    recording.trace = TakeSnapshot(*block, problem);
    // Closed first: writing may take long, or fail.
    std::string openProblem;
    Findings findings;
    if (!levels.Close(openProblem)) {
        findings.Damage("levels-open", "Levels may still be open: " + openProblem +
                                           ". The next call of nima-ctl closes them.");
    }
    if (!recording.trace || !WriteFolder(context, options, recording, levels.Opened(), findings, problem)) {
        PrintFindings(context, findings);
        return Refuse(context, problem);
    }
    AddRemarks(recording, findings);
    return Report(context, options, recording, levels.Opened(), findings);
}

} // namespace

void AddRecordVerb(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* verb = AddVerb(app, context, "record", "Opens levels for a time and keeps what was traced");
    AddOption(*verb, "--for", options->time, "How long, such as 30s").TypeName("TIME").Required();
    AddOption(*verb, "--level", options->levels, "Levels to open, such as 5:2 or Engine:all")
        .TypeName("COMPONENT:LEVEL")
        .Required();
    AddOption(*verb, "-o,--output", options->folder, "The folder for the result, a new one").Required();
    AddWaitOption(*verb, options->wait, "How long to wait for the end of a dump, 10 by default");
    OnCall(*verb, [&run, options] { run = [options](Context& c) { return RunRecord(c, *options); }; });
}

} // namespace NimaCtl
