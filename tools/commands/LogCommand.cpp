#include "catalogue/Levels.h"
#include "catalogue/Marks.h"
#include "tools/base/BoundJson.h"
#include "tools/base/CounterClock.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/commands/Commands.h"
#include "tools/commands/EventPrinter.h"
#include "tools/commands/InputOptions.h"
#include "tools/commands/LinePrinter.h"
#include "tools/commands/LogFollow.h"
#include "tools/commands/SelectionTable.h"
#include "tools/commands/View.h"
#include "tools/input/StandardInput.h"
#include "tools/log/LineSieve.h"
#include "tools/log/LogEvents.h"
#include "tools/log/LogFilter.h"
#include "tools/log/LogSet.h"
#include "tools/log/ShownLines.h"
#include "tools/report/CrashData.h"

#include <algorithm>
#include <memory>
#include <span>

namespace NimaPost {

namespace {

struct LogOptions {
    InputOptions input;
    std::vector<std::string> levels;
    std::vector<std::string> tracers;
    std::vector<std::string> threads;
    std::string text;
    SelectionOptions selection;
    bool alone = false;
    bool follow = false;
};

bool MakeFilter(const LogOptions& options, LogFilter& filter, std::string& problem) {
    for (const std::string& level : options.levels) {
        if (!filter.AddLevel(level)) {
            problem = "no level \"" + level + "\": ";
            for (const std::string_view name : std::span(Nima::Catalogue::kLevelNames).subspan(1)) {
                problem += std::string(name) + ", ";
            }
            problem += std::string("or ") + Nima::Catalogue::kCalibrationLevel +
                       ", with a + for more severe ones too";
            return false;
        }
    }
    for (const std::string& tracer : options.tracers) {
        filter.AddTracer(tracer);
    }
    for (const std::string& thread : options.threads) {
        if (!filter.AddThread(thread)) {
            problem = "no thread \"" + thread + "\": a number such as 0x979fe6c0";
            return false;
        }
    }
    return true;
}

Json EntryJson(const LogEntry& entry, const LogSet& logs) {
    Json json{{"file", ToUtf8(logs.Sources()[entry.part->file].file.Path())}, {"offset", entry.offset}};
    json["time"] = !entry.hasTime ? Json() : entry.hasWall ? Json(WallTimeIso(entry.time)) : Json();
    if (entry.hasTime && !entry.hasWall) {
        json["elapsed_ns"] = entry.time;
    }
    json["boot"] = entry.boot ? Json(*entry.boot) : Json();
    json["process"] = entry.process ? Json(*entry.process) : Json();
    json["certainty"] = MarkOf(entry.certainty).code;
    AddBounds(json, entry.certainty);
    if (const auto likely = logs.LikelyBoundOf(entry)) {
        json["likely_later_by_seconds"] = likely->later;
        json["assuming"] = likely->assuming;
    }
    json["overwritten"] = entry.part->overwritten;
    if (!entry.line.hasHeader) {
        json["continues"] = entry.continued;
    } else {
        if (!entry.line.date) {
            json["counter"] = entry.line.counter;
        }
        json["thread"] = Hex32(entry.line.thread);
        json["priority"] = entry.line.priority;
        json["level"] = entry.line.level;
        json["tracer"] = ToUtf8(entry.line.tracer);
    }
    json["message"] = ToUtf8(entry.line.message);
    return json;
}

Json ProcessesJson(const LogSet& logs) {
    Json processes = Json::array();
    for (const LogProcess& process : logs.Processes()) {
        const ProcessFacts facts = FactsOf(process);
        Json threads = Json::array();
        for (const std::uint32_t thread : process.threads) {
            threads.push_back(Hex32(thread));
        }
        processes.push_back({{"process", processes.size() + 1},
                             {"boot", process.KnownBoot() ? Json(*process.KnownBoot()) : Json()},
                             {"boot_doubt", DoubtJson(facts)},
                             {"evidence", EvidenceCodeOf(process)},
                             {"doubts", facts.Doubts()},
                             {"first", process.IsDated() ? Json(WallTimeIso(process.First())) : Json()},
                             {"last", process.IsDated() ? Json(WallTimeIso(process.Last())) : Json()},
                             {"threads", std::move(threads)}});
    }
    return processes;
}

Findings SummaryOf(const LogSet& logs) {
    Findings findings;
    findings.damage = logs.Unusable().damage;
    for (const LogSet::Source& source : logs.Sources()) {
        findings.Append(source.file.Path(), source.findings);
    }
    for (Finding& finding : logs.ClockStatement()) {
        findings.remarks.push_back(std::move(finding));
    }
    const Findings problems = logs.ReadProblems();
    findings.damage.insert(findings.damage.end(), problems.damage.begin(), problems.damage.end());
    return findings;
}

/// As shown; undated times have no place among dated ones.
std::optional<std::int64_t> TimeOf(const LogEntry& entry, bool hasWall) {
    return entry.hasTime && entry.hasWall == hasWall ? std::optional(entry.time) : std::nullopt;
}

/// Logs, and which of their lines are wanted.
struct Wanted {
    const LogSet& logs;
    LogFilter& filter;
    Selection& selection;
    bool hasWall;
};

/// Hands on the lines that are wanted, those before the last N left out.
void ForEachWanted(Wanted& wanted, const ShownLines::Show& show) {
    const auto run = [&](const ShownLines::Show& each) {
        wanted.selection.BeginCount();
        wanted.filter.Restart();
        ShownLines shown(wanted.filter, [&](const LogEntry& entry) {
            if (wanted.selection.IsIn(TimeOf(entry, wanted.hasWall), entry.certainty)) {
                each(entry);
            }
        });
        const LineSieve sieve(wanted.filter);
        wanted.logs.ForEach(
            [&](const LogEntry& entry) {
                if (wanted.selection.IsOf(entry) &&
                    wanted.selection.MayBeIn(TimeOf(entry, wanted.hasWall), entry.certainty)) {
                    shown.Take(entry);
                }
                return true;
            },
            wanted.selection.TakesAll() ? &sieve : nullptr);
        shown.Finish();
    };
    std::uint64_t skip = 0;
    if (const auto& last = wanted.selection.Last()) {
        std::uint64_t count = 0;
        run([&](const LogEntry& /*entry*/) { ++count; });
        skip = count - std::min(count, *last);
    }
    run([&](const LogEntry& entry) {
        if (skip > 0) {
            --skip;
        } else {
            show(entry);
        }
    });
}

Landmarks LandmarksOf(const LogSet& logs, const Processes& processes, bool withEnds) {
    Landmarks landmarks;
    landmarks.boots = BeginningsOf(processes);
    landmarks.hasWall = !landmarks.boots.empty() ||
                        std::any_of(logs.Sources().begin(), logs.Sources().end(),
                                    [](const auto& source) { return source.kind == LogKind::kQueue; });
    if (withEnds) {
        logs.ForEach([&](const LogEntry& entry) {
            if (const auto time = TimeOf(entry, landmarks.hasWall)) {
                landmarks.Widen(*time);
            }
            return true;
        });
    }
    return landmarks;
}

/// Logs are read a second time for their lines, which may fail although the first time did not.
Findings LateFindings(const Wanted& wanted, const Findings& known) {
    Findings late = wanted.logs.ReadProblems();
    std::erase_if(late.damage, [&](const Finding& finding) {
        return std::any_of(known.damage.begin(), known.damage.end(),
                           [&](const Finding& other) { return other.sentence == finding.sentence; });
    });
    late.remarks = wanted.selection.Remarks();
    return late;
}

void PrintText(Context& context, Wanted& wanted) {
    LinePrinter lines(context);
    ForEachWanted(wanted, [&](const LogEntry& entry) { lines.Print(entry); });
}

void PrintJson(Context& context, Wanted& wanted, const Findings& findings) {
    JsonDocument document(context.out);
    document.Member("findings", FindingsJson(findings));
    document.Member("processes", ProcessesJson(wanted.logs));
    document.BeginArray("lines");
    ForEachWanted(wanted, [&](const LogEntry& entry) { document.Element(EntryJson(entry, wanted.logs)); });
    document.EndArray();
    const Findings late = LateFindings(wanted, findings);
    document.Member("late_findings", FindingsJson(late));
    document.End();
}

/// As all that lists does: an object or a row a line.
void PrintEvents(Context& context, Wanted& wanted) {
    std::vector<std::string> files;
    for (const LogSet::Source& source : wanted.logs.Sources()) {
        files.push_back(source.file.Path());
    }
    EventPrinter printer(context, std::move(files), wanted.hasWall);
    LogEvents events;
    printer.Begin();
    ForEachWanted(wanted, [&](const LogEntry& entry) {
        TimelineEvent event = events.Of(entry);
        event.time = TimeOf(entry, wanted.hasWall);
        printer.Print(event, nullptr);
    });
}

std::string NothingToRead(const LogSet& logs) {
    std::string problem = "nothing to read:";
    for (const Finding& finding : logs.Unusable().damage) {
        problem += ' ' + finding.sentence;
    }
    return problem;
}

/// The text logs of a folder, as `show` tells them.
int RunLogView(Context& context, const DeviceInput& input, const Findings& findings, const LogFilter& filter,
               Selection& selection) {
    return RunView(context, input, findings, selection, [&](const TimelineEvent& event) {
        return event.kind == EventKind::kText &&
               (event.IsRest() || filter.AdmitsHeader(event.level, event.name, event.thread.value_or(0)));
    });
}

int PrintLogs(Context& context, Wanted wanted, const Findings& inherited) {
    const Findings findings = Joined(inherited, SummaryOf(wanted.logs));
    if (context.format == Format::kJson) {
        PrintJson(context, wanted, findings);
        return std::max(ExitCodeOf(findings), ExitCodeOf(LateFindings(wanted, findings)));
    }
    PrintFindings(context, findings);
    if (context.format == Format::kText) {
        PrintText(context, wanted);
    } else {
        PrintEvents(context, wanted);
    }
    const Findings late = LateFindings(wanted, findings);
    PrintFindings(context, late);
    return std::max(ExitCodeOf(findings), ExitCodeOf(late));
}

/// Logs that were named.
int ShowLogs(Context& context, const DeviceInput& input, const Findings& findings, LogFilter& filter,
             Selection& selection) {
    LogSet logs;
    logs.Add(input.device);
    if (logs.Sources().empty()) {
        return ReportUnusable(context, NothingToRead(logs), Joined(findings, logs.Unusable()));
    }
    logs.Arrange();
    Processes processes;
    for (const LogProcess& process : logs.Processes()) {
        processes.Add(FactsOf(process));
    }
    const Landmarks landmarks = LandmarksOf(logs, processes, selection.NeedsEnds());
    std::string problem;
    if (!selection.Settle(processes, landmarks, problem)) {
        return ReportUnusable(context, problem);
    }
    return PrintLogs(context, {logs, filter, selection, landmarks.hasWall}, findings);
}

/// Both remember what they have judged, so each device has its own.
bool Prepare(const LogOptions& options, LogFilter& filter, Selection& selection, std::string& problem) {
    if (!MakeFilter(options, filter, problem) || !selection.Prepare(options.selection, problem)) {
        return false;
    }
    if (!options.text.empty()) {
        selection.Texts().Want(Pattern::Literal(options.text, options.selection.ignoreCase));
    }
    filter.SetTexts(selection.Texts());
    return true;
}

/// Lines that are still to come have no boot, and their range is that they are.
bool SelectsOnlyTexts(const SelectionOptions& options) {
    SelectionOptions texts;
    texts.wanted = options.wanted;
    texts.refused = options.refused;
    texts.ignoreCase = options.ignoreCase;
    return options == texts;
}

int RunFollow(Context& context, const LogOptions& options) {
    LogFilter filter;
    Selection selection;
    std::string problem;
    const std::vector<std::string>& paths = options.input.paths;
    if (!Prepare(options, filter, selection, problem)) {
        return ReportUnusable(context, problem);
    }
    if (!SelectsOnlyTexts(options.selection)) {
        return ReportUnusable(context,
                              "--follow shows lines that are still to come: of the options that say "
                              "which part it takes only --grep, --not and -i");
    }
    return paths.size() == 1 && paths.front() != kStandardInput
               ? FollowLog(context, paths.front(), filter)
               : ReportUnusable(context, "--follow takes one file");
}

int RunLog(Context& context, const LogOptions& options) {
    std::string problem;
    if (options.follow) {
        return RunFollow(context, options);
    }
    return RunOnDevices(
        context, options.input, !options.alone, [&](const DeviceInput& input, Findings& findings) {
            LogFilter filter;
            Selection selection;
            if (!Prepare(options, filter, selection, problem)) {
                return ReportUnusable(context, problem);
            }
            return IsNamed(input.device) ? ShowLogs(context, input, findings, filter, selection)
                                         : RunLogView(context, input, findings, filter, selection);
        });
}

} // namespace

void AddLogCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<LogOptions>();
    CLI::App* command = AddCommand(app, context, "log", "Text logs in the order of time", Prints::kList);
    AddInputOptions(*command, options->input, "FILE", "Logs, whose backups (FILE.1 ...) are read as well");
    AddOption(*command, "--level", options->levels, "Only these levels; WARN+ for WARN and more severe")
        .Delimiter(',')
        .OnePerUse();
    AddOption(*command, "--tracer", options->tracers, "Only lines of these tracers").OnePerUse();
    AddOption(*command, "--thread", options->threads, "Only these threads, such as 0x979fe6c0")
        .Delimiter(',')
        .OnePerUse();
    AddOption(*command, "--text", options->text, "Only messages that contain this text");
    AddSelection(*command, options->selection, TakesLast::kYes);
    AddFlag(*command, "--alone", options->alone, "Leave the backups out");
    AddFlag(*command, "-f,--follow", options->follow, "Print lines as they are written, until Ctrl-C");
    OnCall(*command, [&run, options] { run = [options](Context& c) { return RunLog(c, *options); }; });
}

} // namespace NimaPost
