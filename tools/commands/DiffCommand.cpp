#include "tools/base/CounterClock.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/base/TimeText.h"
#include "tools/commands/Commands.h"
#include "tools/commands/InputOptions.h"
#include "tools/commands/SelectionTable.h"
#include "tools/compare/Difference.h"
#include "tools/input/StandardInput.h"
#include "tools/story/MergedStory.h"
#include "tools/story/SelectedEvents.h"
#include "tools/story/Selection.h"
#include "tools/story/Story.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace NimaPost {

namespace {

constexpr std::size_t kMostLines = 20;
/// Of the time before a crash.
constexpr std::int64_t kUsuallyBefore = 60 * kSecond;

struct DiffOptions {
    std::array<std::string, 2> folders;
    std::vector<std::string> devices;
    std::vector<std::size_t> crashes;
    SelectionOptions selection;
    bool all = false;
    InputLimits limits;

    /// Of several devices in a folder the one that is asked for; none where that is open.
    std::vector<std::string> DeviceIn(std::size_t folder) const {
        return devices.empty() ? devices : std::vector{devices[std::min(folder, devices.size() - 1)]};
    }

    /// The crash that is asked for in a folder; empty for everything.
    std::optional<std::size_t> CrashIn(std::size_t folder) const {
        return crashes.empty() ? std::nullopt : std::optional(crashes[std::min(folder, crashes.size() - 1)]);
    }
};

/// One of the two that are compared.
struct Side {
    std::string folder;
    std::string device; ///< empty where none was asked for
    std::string crash;  ///< its title; empty where everything is compared
    Profile profile;
    Findings findings;

    std::string Name() const {
        return Printable(folder) + (device.empty() ? "" : ", " + Printable(device)) +
               (crash.empty() ? "" : " (" + Printable(crash) + ")");
    }
};

/// The time before a crash that is compared. False, with the reason, where there is no such crash.
bool FindCrash(const Story& story, std::size_t number, std::int64_t before, Side& side,
               std::string& problem) {
    if (number == 0 || number > story.Crashes().size()) {
        const std::size_t count = story.Crashes().size();
        problem =
            side.folder + ": no crash " + std::to_string(number) + "; it tells of " + Counted(count, "crash");
        return false;
    }
    const Crash& crash = story.Crashes()[number - 1];
    if (!crash.time) {
        problem = side.folder + ": nothing tells when crash " + std::to_string(number) + " was";
        return false;
    }
    side.crash = "crash " + std::to_string(number) + ", " + crash.title;
    side.profile = Profile(*crash.time - before, *crash.time + 1);
    return true;
}

/// Which part of a folder is compared.
struct Part {
    Selection selection;
    std::int64_t before = kUsuallyBefore; ///< of the time up to a crash
};

/// With a crash, --within is about the time before it. False, with the reason, for what cannot be understood.
bool Prepare(const DiffOptions& options, Part& part, std::string& problem) {
    SelectionOptions selection = options.selection;
    if (!options.crashes.empty() && !selection.within.empty()) {
        if (!selection.around.empty()) {
            problem = "--within is for one of --crash and --around";
            return false;
        }
        const auto before = ParseDuration(selection.within);
        if (!before) {
            problem = "no length of time \"" + selection.within + "\": 10s, 1m30s, 500ms";
            return false;
        }
        part.before = *before;
        selection.within.clear();
    }
    return part.selection.Prepare(selection, problem);
}

bool FindDevice(const DiffOptions& options, std::size_t number, Side& side, Evidence& evidence,
                std::string& problem) {
    const bool found =
        FindDevices({{side.folder}, options.DeviceIn(number), options.limits}, false, evidence, problem);
    side.findings = std::move(evidence.findings);
    if (found && evidence.devices.size() > 1) {
        problem = side.folder + ": " + std::to_string(evidence.devices.size()) +
                  " devices in it; --device names the one to compare: " + NamesOf(evidence.devices);
        return false;
    }
    return found;
}

bool ReadSide(const Context& context, const DiffOptions& options, std::size_t number, Side& side,
              std::string& problem) {
    side.folder = options.folders[number];
    Story story(context.names);
    Evidence evidence;
    Part part;
    if (!Prepare(options, part, problem) || !FindDevice(options, number, side, evidence, problem)) {
        return false;
    }
    const bool read = story.Read(evidence.devices.front(), side.folder, problem);
    side.device = options.devices.empty() ? "" : evidence.devices.front().name;
    side.findings.Append(side.folder, story.AllDamage());
    const auto crash = options.CrashIn(number);
    if (!read || (crash && !FindCrash(story, *crash, part.before, side, problem))) {
        return false;
    }
    Selection& selection = part.selection;
    if (!selection.Settle(story.Time().AllProcesses(), LandmarksOf(story, selection.NeedsEnds()), problem)) {
        problem.insert(0, side.folder + ": ");
        return false;
    }
    ForEachSelected(story, selection, [&](const TimelineEvent& event) { side.profile.Take(event); });
    side.findings.Append(side.folder, {{}, selection.Remarks()});
    if (side.profile.IsCut()) {
        side.findings.Remark("many-messages",
                             side.folder + ": so many different messages that not all could be compared.");
    }
    return true;
}

std::string Head(const Side& side) {
    char seconds[32];
    std::snprintf(seconds, sizeof(seconds), "%.1f", side.profile.Seconds());
    return Counted(side.profile.Records(), "record") + " in " + seconds + " s: " + side.Name();
}

Json SideJson(const Side& side) {
    return {{"folder", ToUtf8(side.folder)},
            {"device", side.device.empty() ? Json() : Json(ToUtf8(side.device))},
            {"crash", side.crash.empty() ? Json() : Json(ToUtf8(side.crash))},
            {"records", side.profile.Records()},
            {"seconds", side.profile.Seconds()}};
}

int RunDiff(Context& context, const DiffOptions& options) {
    if (options.folders[0] == kStandardInput && options.folders[1] == kStandardInput) {
        return ReportUnusable(context, "standard input can be only one of the two");
    }
    Side first;
    Side second;
    std::string problem;
    if (!ReadSide(context, options, 0, first, problem) || !ReadSide(context, options, 1, second, problem)) {
        first.findings.damage.insert(first.findings.damage.end(), second.findings.damage.begin(),
                                     second.findings.damage.end());
        return ReportUnusable(context, problem, first.findings);
    }
    Findings findings = first.findings;
    for (const auto& [from, to] : {std::pair(&second.findings.damage, &findings.damage),
                                   std::pair(&second.findings.remarks, &findings.remarks)}) {
        to->insert(to->end(), from->begin(), from->end());
    }
    const Difference difference = Compare(first.profile, second.profile);
    if (context.json) {
        Json json{{"first", SideJson(first)}, {"second", SideJson(second)}};
        json.update(DifferenceJson(difference));
        json["findings"] = FindingsJson(findings);
        PrintObject(context, json);
        return ExitCodeOf(findings);
    }
    context.out.Line("first:  " + Head(first));
    context.out.Line("second: " + Head(second));
    for (const std::string& line :
         DifferenceInWords(difference, "the first", "the second",
                           options.all ? std::numeric_limits<std::size_t>::max() : kMostLines)) {
        context.out.Line(line);
    }
    PrintFindings(context, findings);
    return ExitCodeOf(findings);
}

} // namespace

void AddDiffCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<DiffOptions>();
    CLI::App* command =
        AddCommand(app, context, "diff",
                   "Tracers, events and messages that only one of two folders has, and other rates");
    AddOption(*command, "FIRST", options->folders[0],
              "The folder of a device; or a file, an archive, or - for standard input")
        .Required();
    AddOption(*command, "SECOND", options->folders[1],
              "The folder to compare it with; the same for two crashes of it")
        .Required();
    AddOption(*command, "--device", options->devices,
              "Of several devices this one; given twice, the second is that of the second folder")
        .TypeName("NAME")
        .OnePerUse()
        .Times(1, 2);
    AddOption(*command, "--crash", options->crashes,
              "Only the time before crash N, 60s or --within; given twice, the second is that of the second "
              "folder")
        .TypeName("N")
        .OnePerUse()
        .Times(1, 2);
    AddSelection(*command, options->selection, TakesLast::kNo);
    AddFlag(*command, "--all", options->all, "All lines, not only the first 20 of each kind");
    AddLimits(*command, options->limits);
    OnCall(*command, [&run, options] { run = [options](Context& c) { return RunDiff(c, *options); }; });
}

} // namespace NimaPost
