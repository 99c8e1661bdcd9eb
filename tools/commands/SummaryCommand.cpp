#include "catalogue/Levels.h"
#include "tools/base/CounterClock.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/commands/Commands.h"
#include "tools/commands/CrashCause.h"
#include "tools/commands/EventPrinter.h"
#include "tools/commands/InputOptions.h"
#include "tools/commands/View.h"
#include "tools/report/CrashData.h"
#include "tools/story/Statistics.h"
#include "tools/story/Story.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

namespace NimaPost {

namespace {

// A screen of 60 lines holds all of these together.
constexpr std::size_t kMostKinds = 8;
constexpr std::size_t kMostProcesses = 6;
constexpr std::size_t kMostCrashes = 6;
constexpr std::size_t kMostNames = 12;
constexpr std::size_t kMostGaps = 3;
constexpr std::size_t kMostSentences = 4;
constexpr std::size_t kLongestLine = 160;
constexpr std::int64_t kMinute = 60 * kSecond;

template <class Value>
Json TextJson(const Value& value) {
    return value.empty() ? Json() : Json(ToUtf8(value));
}

/// Files and events of each kind of file, in the order in which the kinds appear.
struct KindCount {
    std::string kind;
    std::size_t files = 0;
    std::uint64_t bytes = 0;
    std::uint64_t events = 0;
};

std::vector<KindCount> KindsOf(const Story& story, const Statistics& statistics) {
    std::vector<KindCount> kinds;
    for (const FolderFile& file : story.Files()) {
        const std::string kind(file.row != nullptr ? file.row->kind : "other");
        auto found =
            std::find_if(kinds.begin(), kinds.end(), [&](const auto& each) { return each.kind == kind; });
        if (found == kinds.end()) {
            found = kinds.insert(kinds.end(), KindCount());
            found->kind = kind;
        }
        const auto events = statistics.files.find(file.index);
        ++found->files;
        found->bytes += file.bytes;
        found->events += events != statistics.files.end() ? events->second : 0;
    }
    return kinds;
}

using Name = std::pair<std::pair<EventKind, std::string>, Statistics::Count>;

/// The busiest first.
std::vector<Name> NamesOf(const Statistics& statistics) {
    std::vector<Name> names(statistics.names.begin(), statistics.names.end());
    std::stable_sort(names.begin(), names.end(),
                     [](const Name& a, const Name& b) { return a.second.all > b.second.all; });
    return names;
}

double PerMinute(std::uint64_t count, const Statistics& statistics) {
    const auto length = statistics.Length();
    return length ? static_cast<double>(count) * static_cast<double>(kMinute) / static_cast<double>(*length)
                  : 0;
}

/// " FATAL 3 WARN 125", the gravest first.
std::string LevelsInWords(const std::map<std::string, std::uint64_t>& levels) {
    std::string words;
    const auto add = [&](const std::string& level, std::uint64_t count) {
        words += ' ' + level + ' ' + std::to_string(count);
    };
    for (const std::string_view level : Nima::Catalogue::kLevelNames) {
        const auto found = levels.find(std::string(level));
        if (found != levels.end()) {
            add(found->first, found->second);
        }
    }
    for (const auto& [level, count] : levels) {
        if (std::find(Nima::Catalogue::kLevelNames.begin(), Nima::Catalogue::kLevelNames.end(), level) ==
            Nima::Catalogue::kLevelNames.end()) {
            add(level, count);
        }
    }
    return words;
}

/// As a shell takes it.
std::string Quoted(const std::string& argument) {
    std::string text = ToUtf8(argument);
    if (text.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-./+,:@%") ==
        std::string::npos) {
        return text;
    }
    std::string quoted = "'";
    for (const char c : text) {
        quoted += c == '\'' ? "'\\''" : std::string(1, c);
    }
    return quoted + "'";
}

class Summary {
  public:
    Summary(Context& context, const DeviceInput& input, const Findings& inherited, const Story& story)
        : context_(context),
          input_(input),
          inherited_(inherited),
          story_(story),
          statistics_(StatisticsOf(story)) {}

    void PrintText() {
        Head();
        Processes();
        Crashes();
        Counts();
        Gaps();
        FileFindings();
        Next();
    }

    Json InJson() const {
        Json kinds = Json::array();
        for (const KindCount& kind : KindsOf(story_, statistics_)) {
            kinds.push_back(
                {{"kind", kind.kind}, {"files", kind.files}, {"bytes", kind.bytes}, {"events", kind.events}});
        }
        Json processes = Json::array();
        for (const ProcessFacts& facts : story_.Time().AllProcesses().All()) {
            const Statistics::Ends& ends = statistics_.ends[processes.size()];
            processes.push_back({{"process", processes.size() + 1},
                                 {"boot", facts.boot ? Json(*facts.boot) : Json()},
                                 {"boot_doubt", DoubtJson(facts)},
                                 {"evidence", facts.evidence},
                                 {"doubts", facts.Doubts()},
                                 {"first", TimeJson(facts.first)},
                                 {"first_certainty", CertaintyJson(facts.first, ends.first)},
                                 {"last", TimeJson(facts.last)},
                                 {"last_certainty", CertaintyJson(facts.last, ends.last)},
                                 {"threads", facts.threads.size()}});
        }
        Json gaps = Json::array();
        for (const Statistics::Gap& gap : statistics_.gaps) {
            gaps.push_back({{"from", TimeJson(gap.from)},
                            {"until", TimeJson(gap.until)},
                            {"length_ns", gap.length},
                            {"boot", gap.boot > 0 ? Json(gap.boot) : Json()}});
        }
        return {{"folder", ToUtf8(input_.where)},
                {"first", TimeJson(statistics_.first)},
                {"last", TimeJson(statistics_.last)},
                {"kinds", std::move(kinds)},
                {"processes", std::move(processes)},
                {"crashes", CrashesWithCauses()},
                {"counts", CountsJson()},
                {"gaps", std::move(gaps)},
                {"next", NextCommands()},
                {"findings", FindingsJson(FindingsOf())}};
    }

    Findings FindingsOf() const { return Joined(inherited_, story_.AllFindings()); }

  private:
    bool HasWall() const { return story_.Time().HasWall(); }

    Json TimeJson(const std::optional<std::int64_t>& time) const {
        return !time       ? Json()
               : HasWall() ? Json(WallTimeIso(*time))
                           : Json(MomentInWords(story_.Time(), *time));
    }

    static Json CertaintyJson(const std::optional<std::int64_t>& time, const Statistics::End& end) {
        return time ? Json(MarkOf(end.certainty).code) : Json();
    }

    std::string Moment(std::int64_t time) const { return MomentInWords(story_.Time(), time); }
    std::string Marked(std::int64_t time, const Certainty& certainty, bool overwritten = false) {
        const std::string signs = SignsOf(certainty, overwritten);
        marks_ += signs;
        return Moment(time) + " " + signs;
    }

    void Line(std::string text) {
        if (text.size() > kLongestLine) {
            text.resize(kLongestLine);
            // No half of a character.
            while (!text.empty() && (static_cast<unsigned char>(text.back()) & 0xC0) == 0x80) {
                text.pop_back();
            }
            if (!text.empty() && (static_cast<unsigned char>(text.back()) & 0x80) != 0) {
                text.pop_back();
            }
            text += "...";
        }
        context_.out.Line(text);
    }
    void Heading(std::string_view text) {
        context_.out.Line("");
        context_.out.Line(text);
    }
    void More(std::size_t count, std::size_t most, const char* noun) {
        if (count > most) {
            Line("  and " + Counted(count - most, std::string("more ") + noun));
        }
    }

    void Head() {
        std::error_code error;
        const std::filesystem::path path = std::filesystem::canonical(input_.where, error);
        std::string line = Printable(error ? input_.where : path.filename().string());
        if (statistics_.first) {
            line += ": " + Moment(*statistics_.first) + " to " + Moment(*statistics_.last) +
                    (HasWall() ? ", the device's local time" : ", seconds since its first line or record");
        }
        Line(line);
        const std::vector<KindCount> kinds = KindsOf(story_, statistics_);
        for (std::size_t i = 0; i < std::min(kinds.size(), kMostKinds); ++i) {
            const KindCount& kind = kinds[i];
            std::array<char, 128> row{};
            std::snprintf(row.data(), row.size(), "  %-19s %4zu file%s %12llu bytes %12llu events",
                          kind.kind.c_str(), kind.files, kind.files == 1 ? " " : "s",
                          static_cast<unsigned long long>(kind.bytes),
                          static_cast<unsigned long long>(kind.events));
            Line(row.data());
        }
        More(kinds.size(), kMostKinds, "kind");
    }

    void Processes() {
        const auto& processes = story_.Time().AllProcesses().All();
        if (processes.empty()) {
            return;
        }
        Heading("Boots and processes");
        // The newest tell most.
        const std::size_t skip = processes.size() - std::min(processes.size(), kMostProcesses);
        if (skip > 0) {
            Line("  " + std::to_string(skip) + " older ones left out");
        }
        for (std::size_t i = skip; i < processes.size(); ++i) {
            const ProcessFacts& facts = processes[i];
            std::string line = "  " + ProcessInWords(i + 1, facts);
            if (facts.first && facts.last) {
                const auto& [first, last] = statistics_.ends[i];
                line += ": " + Marked(*facts.first, first.certainty, first.overwritten) + " to " +
                        Marked(*facts.last, last.certainty, last.overwritten);
            }
            Line(line + ", " + Counted(facts.threads.size(), "thread"));
            if (facts.linesProbable || facts.recordsProbable || facts.probablyOne ||
                (facts.doubtful && DoubtOf(facts) != "probably")) {
                Line("     " + facts.proof);
            }
        }
    }

    void Crashes() {
        const std::vector<Crash>& crashes = story_.Crashes();
        const bool isSure = std::all_of(crashes.begin(), crashes.end(),
                                        [](const Crash& crash) { return crash.perhapsOf.empty(); });
        Heading(crashes.empty() ? "No crash"
                : crashes.size() == 1
                    ? "1 crash"
                    : (isSure ? "" : "At most ") + std::to_string(crashes.size()) + " crashes");
        const std::size_t skip = crashes.size() - std::min(crashes.size(), kMostCrashes);
        if (skip > 0) {
            Line("  " + std::to_string(skip) + " older ones left out");
        }
        for (std::size_t i = skip; i < crashes.size(); ++i) {
            const Crash& crash = crashes[i];
            std::string line = "  " + std::to_string(i + 1) + "  ";
            line += crash.time ? Marked(*crash.time, crash.certainty) + "  " : "";
            Line(line + CrashCause(crash).InWords());
            if (!crash.perhapsOf.empty()) {
                Line("     " + DoubtInWords(crash, story_));
            }
            if (const auto& kept = statistics_.firstErrors[i]) {
                const TimelineEvent error = kept->Get();
                Line("     first error before it: " + Marked(*error.time, error.certainty) + " " +
                     std::string(error.level) + " " + Printable(error.name) + ": " + Printable(error.text));
            }
        }
        Legend();
    }

    void Legend() {
        std::string legend;
        const auto add = [&](const TimeMark& mark) {
            if (marks_.find(mark.sign) != std::string::npos) {
                legend += legend.empty() ? "  " : "; ";
                legend += mark.sign;
                (legend += ' ') += mark.meaning;
            }
        };
        std::for_each(kTimeMarks.begin(), kTimeMarks.end(), add);
        add(kOverwrittenMark);
        if (!legend.empty()) {
            Line(legend);
        }
    }

    void Counts() {
        const std::vector<Name> names = NamesOf(statistics_);
        if (names.empty()) {
            return;
        }
        Heading("Tracers, components and rings: how many, per minute, by level");
        for (std::size_t i = 0; i < std::min(names.size(), kMostNames); ++i) {
            const auto& [key, count] = names[i];
            TimelineEvent event;
            event.kind = key.first;
            std::array<char, 160> row{};
            std::snprintf(row.data(), row.size(), "  %-6.*s  %-20.20s %9llu %11.1f ",
                          static_cast<int>(KindName(event).size()), KindName(event).data(),
                          key.second.empty() ? "(no name)" : Printable(key.second).c_str(),
                          static_cast<unsigned long long>(count.all), PerMinute(count.all, statistics_));
            Line(row.data() + LevelsInWords(count.levels));
        }
        More(names.size(), kMostNames, "name");
    }

    void Gaps() {
        if (statistics_.gaps.empty()) {
            return;
        }
        Heading("Longest times without a line while a process ran, unless its clock was set forward");
        for (std::size_t i = 0; i < std::min(statistics_.gaps.size(), kMostGaps); ++i) {
            const Statistics::Gap& gap = statistics_.gaps[i];
            std::string length = Duration(gap.length);
            length.erase(length.size() - 8, 6);
            Line("  " + length + (gap.IsOne() ? " from " : " in all, between ") + Moment(gap.from) +
                 (gap.IsOne() ? "" : " and " + Moment(gap.until)) +
                 (gap.boot > 0 ? ", boot " + std::to_string(gap.boot) : std::string()));
        }
    }

    /// What is damaged, and what is remarkable, about the files and the archives that they came in.
    void FileFindings() {
        Findings findings = inherited_;
        for (const FolderFile& file : story_.Files()) {
            findings.Append(file.name, file.findings);
        }
        Sentences("Damaged", findings.damage, "finding");
        Sentences("Notes", findings.remarks, "note");
    }

    void Sentences(std::string_view heading, const std::vector<Finding>& findings, const char* noun) {
        if (findings.empty()) {
            return;
        }
        Heading(heading);
        for (std::size_t i = 0; i < std::min(findings.size(), kMostSentences); ++i) {
            Line("  " + Printable(findings[i].sentence));
        }
        More(findings.size(), kMostSentences, noun);
    }

    std::vector<std::string> NextCommands() const {
        std::string folder = Quoted(input_.source);
        if (!input_.device.name.empty()) {
            folder += " --device " + Quoted(input_.device.name);
        }
        std::vector<std::string> commands;
        if (!story_.Crashes().empty() && story_.Crashes().back().time) {
            commands.push_back("nima-post show " + folder + " --around crash --within 5s");
        }
        commands.push_back("nima-post log " + folder + " --level WARN+");
        commands.push_back("nima-post report " + folder + " -o report.html");
        return commands;
    }

    void Next() {
        Heading("Next");
        for (const std::string& command : NextCommands()) {
            // A command that is cut is of no use.
            context_.out.Line("  " + Printable(command));
        }
    }

    Json CrashesWithCauses() const {
        Json crashes = CrashesJson(story_);
        for (std::size_t i = 0; i < crashes.size(); ++i) {
            const CrashCause cause(story_.Crashes()[i]);
            const auto& kept = statistics_.firstErrors[i];
            crashes[i]["cause"] = {
                {"message", TextJson(cause.message)},     {"file", TextJson(cause.file)},
                {"line", TextJson(cause.line)},           {"code", TextJson(cause.code)},
                {"exception", TextJson(cause.exception)}, {"top_frame", TextJson(cause.frame)}};
            crashes[i]["first_error"] =
                kept ? EventJson(kept->Get(), HasWall(), story_.Files()[kept->Get().file].name) : Json();
        }
        return crashes;
    }

    Json CountsJson() const {
        Json counts = Json::array();
        for (const auto& [key, count] : NamesOf(statistics_)) {
            TimelineEvent event;
            event.kind = key.first;
            Json levels = Json::object();
            for (const auto& [level, number] : count.levels) {
                levels[ToUtf8(level)] = number;
            }
            counts.push_back({{"kind", KindName(event)},
                              {"name", TextJson(key.second)},
                              {"count", count.all},
                              {"per_minute", PerMinute(count.all, statistics_)},
                              {"levels", std::move(levels)}});
        }
        return counts;
    }

    Context& context_;
    const DeviceInput& input_;
    const Findings& inherited_;
    const Story& story_;
    Statistics statistics_;
    std::string marks_; ///< of the times that are shown
};

int SummariseDevice(Context& context, const DeviceInput& input, Findings& inherited) {
    Story story(context.names);
    if (!ReadStory(context, story, input, inherited)) {
        return kExitUnusable;
    }
    Summary summary(context, input, inherited, story);
    if (context.json) {
        PrintObject(context, summary.InJson());
    } else {
        summary.PrintText();
    }
    return ExitCodeOf(summary.FindingsOf());
}

} // namespace

void AddSummaryCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<InputOptions>();
    CLI::App* command = AddCommand(
        app, context, "summary", "What happened, on one screen; also what a folder without a command gives");
    AddInputOptions(*command, *options, "FOLDER", "The folder that came back from the device");
    OnCall(*command, [&run, options] {
        run = [options](Context& c) {
            return RunOnDevices(c, *options, false, [&](const DeviceInput& input, Findings& findings) {
                return SummariseDevice(c, input, findings);
            });
        };
    });
}

} // namespace NimaPost
