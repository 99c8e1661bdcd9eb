#include "tools/base/InputFile.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/commands/Commands.h"
#include "tools/commands/InputOptions.h"
#include "tools/commands/Symbols.h"
#include "tools/crash/CrashLog.h"
#include "tools/crash/CrashSummary.h"
#include "tools/crash/StackTrace.h"

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
        PrintObject(context, Json{{"file", ToUtf8(file.Path())},
                                  {"title", ToUtf8(stack.Title())},
                                  {"host", HostJson(stack)},
                                  {"report", stack.report},
                                  {"frames", stack.frames},
                                  {"symbols", resolution != nullptr ? ResolutionJson(*resolution) : Json()},
                                  {"findings", FindingsJson(findings)}});
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

struct Options {
    InputOptions input;
    SymbolOptions symbols;
};

int RunCrash(Context& context, const Options& options) {
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
    auto options = std::make_shared<Options>();
    CLI::App* command =
        AddCommand(app, context, "crash", "A crash log or a stack-trace file as a short summary");
    AddInputOptions(*command, options->input, "FILE", "The crash log, or a stack-trace file");
    AddSymbols(*command, options->symbols);
    OnCall(*command, [&run, options] { run = [options](Context& c) { return RunCrash(c, *options); }; });
}

} // namespace NimaPost
