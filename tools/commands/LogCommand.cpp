#include "catalogue/Levels.h"
#include "catalogue/Marks.h"
#include "tools/base/BoundJson.h"
#include "tools/base/CounterClock.h"
#include "tools/base/Interrupt.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/commands/Commands.h"
#include "tools/commands/FolderCommand.h"
#include "tools/commands/InputOptions.h"
#include "tools/input/StandardInput.h"
#include "tools/log/LogFilter.h"
#include "tools/log/LogFollower.h"
#include "tools/log/LogSet.h"
#include "tools/log/ShownLines.h"
#include "tools/story/Folder.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <iostream>
#include <memory>
#include <span>
#include <thread>

namespace NimaPost {

namespace {

constexpr std::chrono::milliseconds kPause(100);

struct Options {
    InputOptions input;
    std::vector<std::string> levels;
    std::vector<std::string> tracers;
    std::vector<std::string> threads;
    std::string text;
    bool ignoreCase = false;
    Selection selection;
    bool alone = false;
    bool follow = false;
};

bool MakeFilter(const Options& options, LogFilter& filter, std::string& problem) {
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
    filter.SetText(options.text, options.ignoreCase);
    return true;
}

void AppendMarks(std::string& text, const LogEntry& entry) {
    text += MarkOf(entry.certainty).sign;
    text += entry.part->overwritten ? kOverwrittenMark.sign : ' ';
}

/// Formats times; lines of one second share everything but the fraction.
class TimePrinter {
  public:
    void Append(std::string& text, const LogEntry& entry) {
        if (!entry.hasTime) {
            text.append(29, ' ');
        } else if (!entry.hasWall) {
            AppendSeconds(text, entry.time);
        } else {
            const std::int64_t fraction = Modulo(entry.time, kSecond);
            if (entry.time - fraction != second_) {
                second_ = entry.time - fraction;
                cached_.clear();
                AppendWallTime(cached_, second_);
                cached_.resize(cached_.size() - 9);
            }
            text += cached_;
            std::array<char, 9> digits{};
            std::int64_t rest = fraction;
            for (std::size_t i = digits.size(); i-- > 0; rest /= 10) {
                digits[i] = static_cast<char>('0' + rest % 10);
            }
            text.append(digits.data(), digits.size());
        }
    }

  private:
    std::int64_t second_ = INT64_MIN;
    std::string cached_;
};

Json EntryJson(const LogEntry& entry, const LogSet& logs) {
    Json json{{"file", ToUtf8(logs.Sources()[entry.part->file].file.Path())}, {"offset", entry.offset}};
    json["time"] = !entry.hasTime ? Json() : entry.hasWall ? Json(WallTimeIso(entry.time)) : Json();
    if (entry.hasTime && !entry.hasWall) {
        json["elapsed_ns"] = entry.time;
    }
    json["boot"] = entry.boot ? Json(*entry.boot) : Json();
    json["process"] = entry.process ? Json(*entry.process) : Json();
    json["later_by_seconds"] = BoundJson(entry.certainty.later);
    if (const auto likely = logs.LikelyBoundOf(entry)) {
        json["likely_later_by_seconds"] = likely->later;
        json["assuming"] = likely->assuming;
    }
    json["earlier_by_seconds"] = BoundJson(entry.certainty.earlier);
    json["overwritten"] = entry.part->overwritten;
    if (entry.continued) {
        json["continues"] = true;
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
        Json threads = Json::array();
        for (const std::uint32_t thread : process.threads) {
            threads.push_back(Hex32(thread));
        }
        processes.push_back({{"process", processes.size() + 1},
                             {"boot", process.boot > 0 ? Json(process.boot) : Json()},
                             {"evidence", EvidenceCodeOf(process)},
                             {"first", process.hasWall ? Json(WallTimeIso(process.first)) : Json()},
                             {"last", process.hasWall ? Json(WallTimeIso(process.last)) : Json()},
                             {"threads", std::move(threads)}});
    }
    return processes;
}

void AddSummary(const LogSet& logs, Findings& findings) {
    const Findings& unusable = logs.Unusable();
    findings.damage.insert(findings.damage.end(), unusable.damage.begin(), unusable.damage.end());
    for (const LogSet::Source& source : logs.Sources()) {
        findings.Append(source.file.Path(), source.findings);
    }
    for (Finding& finding : logs.ClockStatement()) {
        findings.remarks.push_back(std::move(finding));
    }
    const Findings problems = logs.ReadProblems();
    findings.damage.insert(findings.damage.end(), problems.damage.begin(), problems.damage.end());
}

/// Hands over the lines of the wanted boot and process.
void ForEachWanted(const LogSet& logs, const Options& options, ShownLines& shown) {
    logs.ForEach([&](const LogEntry& entry) {
        if (options.selection.Takes(entry)) {
            shown.Take(entry);
        }
        return true;
    });
}

/// Logs are read a second time for their lines, which may fail although the first time did not.
Findings LateProblems(const LogSet& logs, const Findings& known) {
    Findings late = logs.ReadProblems();
    std::erase_if(late.damage, [&](const Finding& finding) {
        return std::any_of(known.damage.begin(), known.damage.end(),
                           [&](const Finding& other) { return other.sentence == finding.sentence; });
    });
    return late;
}

void PrintText(Context& context, const LogSet& logs, const Options& options, LogFilter& filter) {
    TimePrinter times;
    ShownLines shown(filter, [&](const LogEntry& entry) {
        std::string& text = context.out.Text();
        times.Append(text, entry);
        text += ' ';
        AppendMarks(text, entry);
        AppendPrintable(text, entry.text);
        text += '\n';
        context.out.Pace();
    });
    ForEachWanted(logs, options, shown);
}

void PrintJson(Context& context, const LogSet& logs, const Options& options, LogFilter& filter,
               const DeviceInput& input, const Findings& findings) {
    JsonDocument document(context.out);
    if (!input.one) {
        document.Member("device", ToUtf8(input.where));
    }
    document.Member("findings", FindingsJson(findings));
    document.Member("processes", ProcessesJson(logs));
    document.BeginArray("lines");
    ShownLines shown(filter, [&](const LogEntry& entry) { document.Element(EntryJson(entry, logs)); });
    ForEachWanted(logs, options, shown);
    document.EndArray();
    const Findings late = LateProblems(logs, findings);
    if (!late.damage.empty()) {
        document.Member("late_findings", FindingsJson(late));
    }
    document.End();
}

Json FollowedJson(const std::string& path, const LogLine& line) {
    Json json{{"file", ToUtf8(path)}};
    if (line.hasHeader) {
        json["counter"] = line.counter;
        json["thread"] = Hex32(line.thread);
        json["level"] = line.level;
        json["tracer"] = ToUtf8(line.tracer);
    }
    json["message"] = ToUtf8(line.message);
    return json;
}

/// A log that does not exist yet can be waited for; what is there must be readable.
bool CanFollow(const std::string& path, std::string& problem) {
    std::error_code error;
    if (InputFile::Open(path, problem)) {
        return true;
    }
    if (std::filesystem::exists(path, error)) {
        return false;
    }
    std::cerr << "note: " << Printable(problem) << "; waiting for it\n";
    return true;
}

/// Prints the lines as they come, until an interrupt.
int Follow(Context& context, const std::string& path, LogFilter& filter) {
    Interrupt interrupt;
    LogFollower follower(path);
    ShownLines shown(filter, [&](const LogEntry& entry) {
        if (context.json) {
            context.out.WriteJson(FollowedJson(path, entry.line));
        } else {
            AppendPrintable(context.out.Text(), entry.text);
        }
        context.out.Write("\n");
    });
    std::string told;
    while (!interrupt.Requested()) {
        const bool any = follower.Poll([&](std::string_view text) {
            LogEntry entry;
            entry.line = ParseLogLine(text);
            entry.text = text;
            entry.continued = !entry.line.hasHeader;
            shown.Take(entry);
        });
        if (any && !context.out.Flush()) {
            break;
        }
        if (const std::string error = follower.ReadError(); !error.empty() && error != told) {
            std::cerr << "damaged: " << Printable(path) << ": Not all of it could be read: " << error
                      << ".\n";
            told = error;
        }
        if (!any) {
            std::this_thread::sleep_for(kPause);
        }
    }
    return told.empty() ? kExitFine : kExitDamaged;
}

std::string NothingToRead(const LogSet& logs, const std::string& where) {
    std::string problem = "nothing to read:";
    for (const Finding& finding : logs.Unusable().damage) {
        problem += ' ' + finding.sentence;
    }
    return logs.Unusable().damage.empty() ? where + ": no text log in it" : problem;
}

int ShowLogs(Context& context, const Options& options, LogFilter& filter, const DeviceInput& input,
             Findings& findings) {
    LogSet logs;
    const auto manifest = ManifestOf(input.device, findings);
    logs.SetCollected(manifest ? manifest->Moment() : std::nullopt);
    logs.Add(input.device);
    if (logs.Sources().empty()) {
        const Findings& unusable = logs.Unusable();
        if (!context.json) {
            PrintFindings(context, findings);
        }
        findings.damage.insert(findings.damage.end(), unusable.damage.begin(), unusable.damage.end());
        return ReportUnusable(context, NothingToRead(logs, input.where), findings);
    }
    logs.Arrange();
    Processes processes;
    for (const LogProcess& process : logs.Processes()) {
        processes.Add(FactsOf(process));
    }
    const std::string problem = options.selection.Missing(processes);
    if (!problem.empty()) {
        return ReportUnusable(context, problem);
    }
    AddSummary(logs, findings);
    if (logs.LaterThanCollected() > 0) {
        findings.Damage("manifest-contradicted",
                        Counted(logs.LaterThanCollected(), "date") +
                            " in the logs later than the moment at which the manifest was written.");
    }
    if (context.json) {
        PrintJson(context, logs, options, filter, input, findings);
    } else {
        PrintFindings(context, findings);
        PrintText(context, logs, options, filter);
        PrintFindings(context, LateProblems(logs, findings));
    }
    return std::max(ExitCodeOf(findings), ExitCodeOf(LateProblems(logs, findings)));
}

int RunLog(Context& context, const Options& options) {
    LogFilter filter;
    std::string problem;
    if (!MakeFilter(options, filter, problem)) {
        return ReportUnusable(context, problem);
    }
    if (options.follow) {
        const std::vector<std::string>& paths = options.input.paths;
        if (paths.size() != 1 || paths.front() == kStandardInput) {
            return ReportUnusable(context, "--follow takes one file");
        }
        if (!CanFollow(paths.front(), problem)) {
            return ReportUnopened(context, problem);
        }
        return Follow(context, paths.front(), filter);
    }
    return RunOnDevices(
        context, options.input, !options.alone, [&](const DeviceInput& input, Findings& findings) {
            // It remembers what it has judged.
            LogFilter own;
            return MakeFilter(options, own, problem) ? ShowLogs(context, options, own, input, findings)
                                                     : ReportUnusable(context, problem);
        });
}

} // namespace

void AddLogCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* command = AddCommand(app, context, "log", "Text logs in the order of time");
    AddInputOptions(*command, options->input, "FILE", "Logs; their backups (FILE.1 ...) are read as well");
    command->add_option("--level", options->levels, "Only these levels; WARN+ for WARN and more severe")
        ->delimiter(',');
    command->add_option("--tracer", options->tracers, "Only lines of these tracers");
    command->add_option("--thread", options->threads, "Only these threads, such as 0x979fe6c0")
        ->delimiter(',');
    command->add_option("--text", options->text, "Only messages that contain this text");
    command->add_flag("-i,--ignore-case", options->ignoreCase, "--text ignores case (ASCII)");
    AddSelection(*command, options->selection);
    command->add_flag("--alone", options->alone, "Leave the backups out");
    command->add_flag("-f,--follow", options->follow, "Print lines as they are written, until Ctrl-C");
    command->callback([&run, options] { run = [options](Context& c) { return RunLog(c, *options); }; });
}

} // namespace NimaPost
