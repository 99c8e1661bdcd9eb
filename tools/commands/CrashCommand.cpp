#include "tools/base/InputFile.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/commands/Commands.h"
#include "tools/commands/CrashCause.h"
#include "tools/commands/InputOptions.h"
#include "tools/commands/SelectionTable.h"
#include "tools/commands/Symbols.h"
#include "tools/commands/View.h"
#include "tools/crash/CrashLog.h"
#include "tools/crash/CrashSummary.h"
#include "tools/crash/StackTrace.h"
#include "tools/report/CrashData.h"
#include "tools/story/MergedStory.h"
#include "tools/story/Story.h"

#include <algorithm>
#include <filesystem>
#include <memory>
#include <utility>

namespace NimaPost {

namespace {

constexpr std::size_t kMostActive = 8;

void PrintActiveRings(Output& out, const RingSet& rings) {
    const auto active = ActiveRings(rings);
    if (!active.empty()) {
        out.Line(
            "  rings active last (newest record before the head was written; perhaps whole seconds more):");
        for (std::size_t i = 0; i < std::min(active.size(), kMostActive); ++i) {
            std::string line = "    ";
            AppendSeconds(line, active[i].newest);
            line += " s  " + active[i].ring->name + ", " + Counted(active[i].ring->records.size(), "record");
            out.Line(line);
        }
    }
}

/// By what the log itself tells.
std::string WhenWritten(const CrashLog& log) {
    std::string when;
    if (log.date) {
        AppendWallTime(when, log.date->Earliest());
        when = WithMark(std::move(when), {0, 0, false, log.date->Spread()}) + kByHead;
    }
    return when;
}

/// But for its title.
void PrintCrash(Output& out, const CrashLog& log, const std::string& when) {
    for (const auto& [label, value] : FailureInWords(log, when)) {
        std::string line("  ");
        line += label;
        line.append(15 - std::min<std::size_t>(line.size(), 14), ' ');
        line += value;
        out.Line(line);
    }
    for (const auto& [label, value] : log.exception) {
        std::string line("  record       ");
        line += label;
        line += ' ';
        line += value;
        out.Line(line);
    }
    PrintActiveRings(out, log.rings);
    if (!log.modules.empty()) {
        out.Line("  modules      " + std::to_string(log.modules.size() - 1) + " listed");
    }
    if (!log.footer.empty()) {
        out.Line("  footer       " + log.footer.substr(0, log.footer.find('\n')));
    }
}

Json HostJson(const StackTrace& stack) {
    if (!stack.host) {
        return nullptr;
    }
    const HostReport& host = *stack.host;
    return {{"message", ToUtf8(host.message)},
            {"file", ToUtf8(host.file)},
            {"line", host.line},
            {"code", host.code ? Json(Hex32(*host.code)) : Json()},
            {"cut", host.cut}};
}

Json PairsJson(const std::vector<std::pair<std::string, std::string>>& pairs) {
    Json json = Json::object();
    for (const auto& [label, value] : pairs) {
        json[ToUtf8(label)] = ToUtf8(value);
    }
    return json;
}

Json LogJson(const std::string& path, const CrashLog& log, const Findings& findings) {
    Json rings = Json::array();
    for (const ActiveRing& active : ActiveRings(log.rings)) {
        rings.push_back({{"ring", active.ring->name},
                         {"records", active.ring->records.size()},
                         {"newest_before_crash_ns", -active.newest}});
    }
    return {{"file", ToUtf8(path)},
            {"title", log.Title()},
            {"written", log.date ? Json(WallTimeIso(log.date->Earliest())) : Json()},
            {"ticks", log.ticks ? Json(*log.ticks) : Json()},
            {"failure", PairsJson(log.failure)},
            {"extra_words", log.extraData},
            {"exception_record", log.exception.empty() ? Json() : PairsJson(log.exception)},
            {"modules", log.modules},
            {"active_rings", rings},
            {"crash", Json()},
            {"complete", log.complete},
            {"footer", log.footer},
            {"findings", FindingsJson(findings)}};
}

/// But for its title.
void PrintStack(Output& out, const StackTrace& stack, const Resolution* resolution) {
    for (const std::string& line : stack.report) {
        out.Line("  " + line);
    }
    for (std::size_t i = 0; i < stack.frames.size(); ++i) {
        out.Line("  " + stack.frames[i]);
        for (const std::string& line :
             resolution != nullptr ? FrameInWords(*resolution, i) : std::vector<std::string>()) {
            out.Line("      " + line);
        }
    }
}

/// What is beside the file counts.
KnownModules KnownBeside(const InputFile& file) {
    const std::filesystem::path path(file.Path());
    return KnownIn(path.has_parent_path() ? path.parent_path().string() : ".");
}

Json StackJson(const std::string& path, const StackTrace& stack, const Resolution* resolution,
               const Findings& findings) {
    return {
        {"file", ToUtf8(path)},    {"title", ToUtf8(stack.Title())},
        {"host", HostJson(stack)}, {"report", stack.report},
        {"frames", stack.frames},  {"symbols", resolution != nullptr ? ResolutionJson(*resolution) : Json()},
        {"crash", Json()},         {"findings", FindingsJson(findings)}};
}

/// A file's object with what the whole folder tells of its crash, by its place among all.
Json WithPlace(Json json, const Story& story, std::size_t place) {
    const Crash& crash = story.Crashes()[place];
    json["crash"] = CrashJson(crash, story);
    json["crash"]["number"] = place + 1;
    return json;
}

int ShowStack(Context& context, const InputFile& file, std::string_view text, const SymbolOptions& symbols,
              Findings& findings) {
    const StackTrace stack = ReadStackTrace(text, findings);
    file.ReportReadProblem(findings);
    const std::string name = std::filesystem::path(file.PlainPath()).filename().string();
    const auto resolved = ResolveStacks(symbols, [&] { return KnownBeside(file); }, {{&stack, name}});
    const Resolution* const resolution = resolved ? &resolved->resolutions.front() : nullptr;
    if (resolved) {
        resolved->AddTo(findings);
    }
    if (context.json) {
        PrintObject(context, StackJson(file.Path(), stack, resolution, findings));
    } else {
        context.out.Line(stack.Title());
        PrintStack(context.out, stack, resolution);
        PrintFindings(context, findings);
    }
    return ExitCodeOf(findings);
}

int ShowCrash(Context& context, const InputFile& file, const SymbolOptions& symbols, Findings& findings) {
    const std::string text = file.ReadAll(kMostTextBytes);
    if (LooksLikeStackTrace(text)) {
        return ShowStack(context, file, text, symbols, findings);
    }
    const auto log = ReadCrashLog(text, findings);
    if (!log) {
        return ReportUnusable(context, file, findings);
    }
    file.ReportReadProblem(findings);
    if (context.json) {
        PrintObject(context, LogJson(file.Path(), *log, findings));
    } else {
        context.out.Line(log->Title());
        PrintCrash(context.out, *log, WhenWritten(*log));
        PrintFindings(context, findings);
    }
    return ExitCodeOf(findings);
}

struct CrashOptions {
    InputOptions input;
    SymbolOptions symbols;
    SelectionOptions selection;
};

/// The crashes of a device that are asked for, the oldest first, by their places among all.
std::vector<std::size_t> SelectedCrashes(const Story& story, Selection& selection) {
    std::vector<std::size_t> selected;
    for (std::size_t i = 0; i < story.Crashes().size(); ++i) {
        const Crash& crash = story.Crashes()[i];
        std::string words;
        AppendWords(words, EventOf(crash));
        words += "  " + CrashCause(crash).InWords();
        if ((selection.Texts().Empty() || selection.Texts().Admits(words)) && selection.Takes(crash)) {
            selected.push_back(i);
        }
    }
    const std::uint64_t most = selection.Last().value_or(selected.size());
    if (selected.size() > most) {
        selected.erase(selected.begin(), selected.end() - static_cast<std::ptrdiff_t>(most));
    }
    return selected;
}

/// What there is of one crash, file by file.
class CrashFiles {
  public:
    CrashFiles(const Story& story, std::size_t place, const SymbolOptions& symbols, Findings& findings)
        : story_(story), place_(place), crash_(story.Crashes()[place]) {
        std::vector<NamedStack> stacks;
        for (const StackTraceSource::Held* const held : crash_.stacks) {
            stacks.push_back({&held->content, story.Files()[held->file].plainName});
        }
        if (!stacks.empty()) {
            resolved_ = ResolveStacks(
                symbols, [&] { return story.Known(); }, stacks);
        }
        if (resolved_) {
            resolved_->AddTo(findings);
        }
    }

    void Print(Output& out) const {
        if (crash_.log != nullptr) {
            PrintCrash(out, crash_.log->log, TimeInWords(crash_, story_.Time()));
        }
        for (std::size_t i = 0; i < crash_.stacks.size(); ++i) {
            const StackTrace& stack = crash_.stacks[i]->content;
            if (stack.Title() != crash_.title) {
                out.Line(stack.Title());
            }
            PrintStack(out, stack, ResolutionOf(i));
        }
    }

    /// What one of its files says, as that is called.
    Json InJson(std::size_t file, const std::string& path) const {
        const Findings& findings = story_.Files()[file].findings;
        const auto stack = std::find_if(crash_.stacks.begin(), crash_.stacks.end(),
                                        [&](const auto* held) { return held->file == file; });
        if (stack == crash_.stacks.end()) {
            Json json = LogJson(path, crash_.log->log, findings);
            json["title"] = ToUtf8(crash_.title);
            return WithPlace(std::move(json), story_, place_);
        }
        const auto number = static_cast<std::size_t>(stack - crash_.stacks.begin());
        return WithPlace(StackJson(path, (*stack)->content, ResolutionOf(number), findings), story_, place_);
    }

  private:
    const Resolution* ResolutionOf(std::size_t stack) const {
        return resolved_ ? &resolved_->resolutions[stack] : nullptr;
    }

    const Story& story_;
    std::size_t place_;
    const Crash& crash_;
    std::optional<ResolvedStacks> resolved_;
};

/// The crashes of a device as its whole story places them, since that is what times and boots come from.
int ShowSelected(Context& context, const CrashOptions& options, const DeviceInput& input, Findings& findings,
                 std::size_t& shown) {
    Story story(context.names);
    Selection selection;
    std::string problem;
    if (!selection.Prepare(options.selection, problem)) {
        return ReportUnusable(context, problem);
    }
    if (!ReadStory(context, story, input, findings)) {
        return kExitUnusable;
    }
    if (!selection.Settle(story.Time().AllProcesses(), LandmarksOf(story, selection.NeedsEnds()), problem)) {
        return ReportUnusable(context, problem);
    }
    findings = Joined(findings, story.AllDamage());
    Json crashes = Json::array();
    const std::vector<std::string> headings = CrashLines(story);
    const std::vector<std::size_t> selected = SelectedCrashes(story, selection);
    if (selected.empty() && !context.json) {
        context.out.Line(options.selection == SelectionOptions() ? "No crash." : "No crash is selected.");
    }
    shown += selected.size();
    for (const std::size_t i : selected) {
        const CrashFiles files(story, i, options.symbols, findings);
        if (context.json) {
            for (const std::size_t file : story.Crashes()[i].files) {
                crashes.push_back(files.InJson(file, input.where + "/" + story.Files()[file].name));
            }
        } else {
            context.out.Line(headings[i]);
            files.Print(context.out);
        }
    }
    findings = Joined(findings, {{}, selection.Remarks()});
    if (context.json) {
        PrintObject(context, Json{{"folder", ToUtf8(input.where)},
                                  {"files", std::move(crashes)},
                                  {"findings", FindingsJson(findings)}});
    } else {
        PrintFindings(context, findings);
    }
    return ExitCodeOf(findings);
}

/// One file of a device, with the crash that it is of.
int ListFile(Context& context, const CrashOptions& options, const EvidenceFile& file, const Story& story,
             const Findings& inherited) {
    const auto found = std::find_if(story.Files().begin(), story.Files().end(),
                                    [&](const FolderFile& each) { return each.name == file.name; });
    Findings findings = Joined(inherited, found->findings);
    for (std::size_t place = 0; place < story.Crashes().size(); ++place) {
        const std::vector<std::size_t>& of = story.Crashes()[place].files;
        if (std::find(of.begin(), of.end(), found->index) != of.end()) {
            const CrashFiles files(story, place, options.symbols, findings);
            Json json = files.InJson(found->index, file.path);
            json["findings"] = FindingsJson(findings);
            PrintObject(context, json);
            return ExitCodeOf(findings);
        }
    }
    std::string problem = file.path + ":";
    for (const Finding& finding : findings.damage) {
        problem += " " + finding.sentence;
    }
    return ReportUnusable(context, problem, findings);
}

bool IsCrash(std::string_view front, std::uint64_t /*size*/) {
    return LooksLikeCrashLog(front) || LooksLikeStackTrace(front);
}

/// For people, a folder's crashes one after the other, whichever files tell of them.
int ShowAll(Context& context, const CrashOptions& options) {
    std::size_t crashes = 0;
    const int code = RunOnInput(
        context, options.input,
        [&](const InputFile& file, Findings& findings) {
            ++crashes;
            return ShowCrash(context, file, options.symbols, findings);
        },
        [&](const DeviceInput& input, Findings& findings) {
            return ShowSelected(context, options, input, findings, crashes);
        });
    if (crashes > 0 || code != kExitFine) {
        return code;
    }
    return ReportUnusable(context, options.input.paths.front() + ": no crash log or stack trace in it");
}

/// For programs, file by file.
int ListAll(Context& context, const CrashOptions& options) {
    const Device* read = nullptr; // Files come device by device.
    std::unique_ptr<Story> story;
    const auto list = [&](EvidenceFile& file, Device& device, Findings& findings) {
        std::string problem;
        if (IsNamed(device)) {
            const auto input = file.Open(problem);
            return input ? ShowCrash(context, *input, options.symbols, findings)
                         : ReportUnopened(context, problem);
        }
        if (std::exchange(read, &device) != &device) {
            story = std::make_unique<Story>(context.names);
            story->Read(device, device.name, problem);
        }
        return ListFile(context, options, file, *story, findings);
    };
    return RunOnEvidence(context, options.input, {"crash log or stack trace", IsCrash}, list);
}

int RunCrash(Context& context, const CrashOptions& options) {
    if (options.selection == SelectionOptions()) {
        return context.json ? ListAll(context, options) : ShowAll(context, options);
    }
    return RunOnDevices(context, options.input, false, [&](const DeviceInput& input, Findings& findings) {
        std::size_t crashes = 0;
        return ShowSelected(context, options, input, findings, crashes);
    });
}

} // namespace

void AddCrashCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<CrashOptions>();
    CLI::App* command =
        AddCommand(app, context, "crash", "A crash log or a stack-trace file as a short summary");
    AddInputOptions(*command, options->input, "FILE", "The crash log, or a stack-trace file");
    AddSymbols(*command, options->symbols);
    AddSelection(*command, options->selection, TakesLast::kYes);
    OnCall(*command, [&run, options] { run = [options](Context& c) { return RunCrash(c, *options); }; });
}

} // namespace NimaPost
