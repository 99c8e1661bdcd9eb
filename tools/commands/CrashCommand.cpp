#include "tools/base/InputFile.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
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

void PrintCrash(Output& out, const CrashLog& log) {
    out.Line(log.Title());
    for (const auto& [label, value] : FailureInWords(log)) {
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

Json CrashJson(const std::string& path, const CrashLog& log, const Findings& findings) {
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
            {"complete", log.complete},
            {"footer", log.footer},
            {"findings", FindingsJson(findings)}};
}

void PrintStack(Output& out, const StackTrace& stack, const Resolution* resolution) {
    out.Line(stack.Title());
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

/// What is beside the file counts, wherever the file is.
KnownModules KnownBeside(const InputFile& file, Device& device) {
    if (!IsNamed(device)) {
        return KnownIn(device);
    }
    const std::filesystem::path path(file.Path());
    return KnownIn(path.has_parent_path() ? path.parent_path().string() : ".");
}

Json StackJson(const std::string& path, const StackTrace& stack, const Resolution* resolution,
               const Findings& findings) {
    return {{"file", ToUtf8(path)},
            {"title", ToUtf8(stack.Title())},
            {"host", HostJson(stack)},
            {"report", stack.report},
            {"frames", stack.frames},
            {"symbols", resolution != nullptr ? ResolutionJson(*resolution) : Json()},
            {"findings", FindingsJson(findings)}};
}

int ShowStack(Context& context, const InputFile& file, Device& device, std::string_view text,
              const SymbolOptions& symbols, Findings& findings) {
    const StackTrace stack = ReadStackTrace(text, findings);
    file.ReportReadProblem(findings);
    const std::string name = std::filesystem::path(file.PlainPath()).filename().string();
    const auto resolved = ResolveStacks(symbols, [&] { return KnownBeside(file, device); }, {{&stack, name}});
    const Resolution* const resolution = resolved ? &resolved->resolutions.front() : nullptr;
    if (resolved) {
        resolved->AddTo(findings);
    }
    if (context.json) {
        PrintObject(context, StackJson(file.Path(), stack, resolution, findings));
    } else {
        PrintStack(context.out, stack, resolution);
        PrintFindings(context, findings);
    }
    return ExitCodeOf(findings);
}

int ShowCrash(Context& context, const InputFile& file, Device& device, const SymbolOptions& symbols,
              Findings& findings) {
    const std::string text = file.ReadAll(kMostTextBytes);
    if (LooksLikeStackTrace(text)) {
        return ShowStack(context, file, device, text, symbols, findings);
    }
    const auto log = ReadCrashLog(text, findings);
    if (!log) {
        return ReportUnusable(context, file, findings);
    }
    file.ReportReadProblem(findings);
    if (context.json) {
        PrintObject(context, CrashJson(file.Path(), *log, findings));
    } else {
        PrintCrash(context.out, *log);
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
    CrashFiles(const DeviceInput& input, const Story& story, const Crash& crash, const SymbolOptions& symbols,
               Findings& findings)
        : input_(input), story_(story), crash_(crash) {
        std::vector<NamedStack> stacks;
        for (const StackTraceSource::Held* const held : crash.stacks) {
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
            PrintCrash(out, crash_.log->log);
        }
        for (std::size_t i = 0; i < crash_.stacks.size(); ++i) {
            PrintStack(out, crash_.stacks[i]->content, ResolutionOf(i));
        }
    }

    void AddTo(Json& json) const {
        for (const std::size_t file : crash_.files) {
            const FolderFile& from = story_.Files()[file];
            const std::string path = input_.where + "/" + from.name;
            const auto stack = std::find_if(crash_.stacks.begin(), crash_.stacks.end(),
                                            [&](const auto* held) { return held->file == file; });
            if (stack != crash_.stacks.end()) {
                const auto place = static_cast<std::size_t>(stack - crash_.stacks.begin());
                json.push_back(StackJson(path, (*stack)->content, ResolutionOf(place), from.findings));
            } else if (crash_.log != nullptr) {
                json.push_back(CrashJson(path, crash_.log->log, from.findings));
            }
        }
    }

  private:
    const Resolution* ResolutionOf(std::size_t stack) const {
        return resolved_ ? &resolved_->resolutions[stack] : nullptr;
    }

    const DeviceInput& input_;
    const Story& story_;
    const Crash& crash_;
    std::optional<ResolvedStacks> resolved_;
};

/// The crashes of a device as its whole story places them, since that is what times and boots come from.
int ShowSelected(Context& context, const CrashOptions& options, const DeviceInput& input,
                 Findings& findings) {
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
        context.out.Line("No crash is selected.");
    }
    for (const std::size_t i : selected) {
        const CrashFiles files(input, story, story.Crashes()[i], options.symbols, findings);
        if (context.json) {
            files.AddTo(crashes);
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

int RunCrash(Context& context, const CrashOptions& options) {
    if (options.selection != SelectionOptions()) {
        return RunOnDevices(context, options.input, false, [&](const DeviceInput& input, Findings& findings) {
            return ShowSelected(context, options, input, findings);
        });
    }
    const auto isCrash = [](std::string_view front, std::uint64_t /*size*/) {
        return LooksLikeCrashLog(front) || LooksLikeStackTrace(front);
    };
    return RunOnFiles(context, options.input, {"crash log or stack trace", isCrash},
                      [&](const InputFile& file, Device& device, Findings& findings) {
                          return ShowCrash(context, file, device, options.symbols, findings);
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
