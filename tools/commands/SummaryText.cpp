#include "tools/commands/SummaryText.h"

#include "catalogue/Levels.h"
#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/commands/CrashCause.h"
#include "tools/commands/EventPrinter.h"
#include "tools/commands/View.h"
#include "tools/report/CrashData.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <filesystem>
#include <map>
#include <string>
#include <string_view>
#include <system_error>

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

class SummaryText {
  public:
    SummaryText(Context& context, const SummaryFacts& facts) : context_(context), facts_(facts) {}

    void Print() {
        Head();
        Processes();
        Crashes();
        Counts();
        Gaps();
        FileFindings();
        Next();
    }

  private:
    std::string Moment(std::int64_t time) const { return MomentInWords(facts_.story.Time(), time); }
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
        const std::filesystem::path path = std::filesystem::canonical(facts_.input.where, error);
        std::string line = Printable(error ? facts_.input.where : path.filename().string());
        if (facts_.statistics.first) {
            line +=
                ": " + Moment(*facts_.statistics.first) + " to " + Moment(*facts_.statistics.last) +
                (facts_.HasWall() ? ", the device's local time" : ", seconds since its first line or record");
        }
        Line(line);
        const std::vector<SummaryFacts::Kind> kinds = facts_.Kinds();
        for (std::size_t i = 0; i < std::min(kinds.size(), kMostKinds); ++i) {
            const SummaryFacts::Kind& kind = kinds[i];
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
        const auto& processes = facts_.story.Time().AllProcesses().All();
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
                const auto& [first, last] = facts_.statistics.ends[i];
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
        const std::vector<Crash>& crashes = facts_.story.Crashes();
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
                Line("     " + DoubtInWords(crash, facts_.story));
            }
            if (const auto& kept = facts_.statistics.firstErrors[i]) {
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
        const std::vector<SummaryFacts::Name> names = facts_.Names();
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
                          static_cast<unsigned long long>(count.all), facts_.PerMinute(count.all));
            Line(row.data() + LevelsInWords(count.levels));
        }
        More(names.size(), kMostNames, "name");
    }

    void Gaps() {
        if (facts_.statistics.gaps.empty()) {
            return;
        }
        Heading("Longest times without a line while a process ran, unless its clock was set forward");
        for (std::size_t i = 0; i < std::min(facts_.statistics.gaps.size(), kMostGaps); ++i) {
            const Statistics::Gap& gap = facts_.statistics.gaps[i];
            std::string length = Duration(gap.length);
            length.erase(length.size() - 8, 6);
            Line("  " + length + (gap.IsOne() ? " from " : " in all, between ") + Moment(gap.from) +
                 (gap.IsOne() ? "" : " and " + Moment(gap.until)) +
                 (gap.boot > 0 ? ", boot " + std::to_string(gap.boot) : std::string()));
        }
    }

    /// What is damaged, and what is remarkable, about the files and the archives that they came in.
    void FileFindings() {
        Findings findings = facts_.inherited;
        for (const FolderFile& file : facts_.story.Files()) {
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

    void Next() {
        Heading("Next");
        for (const std::string& command : facts_.NextCommands()) {
            // A command that is cut is of no use.
            context_.out.Line("  " + Printable(command));
        }
    }

    Context& context_;
    const SummaryFacts& facts_;
    std::string marks_; ///< of the times that are shown
};

} // namespace

void PrintSummary(Context& context, const SummaryFacts& facts) {
    SummaryText(context, facts).Print();
}

} // namespace NimaPost
