#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/log/LogSet.h"

#include <algorithm>
#include <map>
#include <optional>

namespace NimaPost {

namespace {

/// Of processes that are told about one by one.
constexpr std::size_t kMostTold = 16;

void StateProcesses(const std::vector<LogProcess>& processes, std::span<const std::size_t> numbers,
                    std::vector<Finding>& statement) {
    if (processes.size() < 2) {
        return;
    }
    std::size_t boots = 0;
    std::map<std::size_t, std::size_t> provenOfLog;
    std::size_t proven = 1;
    for (const LogProcess& process : processes) {
        boots = std::max(boots, process.boot);
        provenOfLog[process.log] += process.evidence == BootEvidence::kUptime ? 1 : 0;
        proven = std::max(proven, provenOfLog[process.log] + 1);
    }
    statement.push_back(
        {"several-processes",
         "The text logs are told as those of " + std::to_string(processes.size()) +
             " processes; one that opened a log again counts as two. They are numbered as of " +
             Counted(boots, "boot") + ", of which " + std::to_string(proven) +
             (proven == 1 ? " is" : " are") + " proven."});
    for (std::size_t i = 0; i < std::min(processes.size(), kMostTold); ++i) {
        const LogProcess& process = processes[i];
        const ProcessFacts facts = FactsOf(process);
        std::string text = ProcessInWords(numbers.empty() ? i + 1 : numbers[i], facts);
        text.front() = 'P';
        if (process.IsDated()) {
            text += ", from ";
            AppendWallTime(text, process.First());
        } else {
            text += ", when is not known";
        }
        statement.push_back({"process-begins", text + ": " + facts.proof + "."});
    }
    if (processes.size() > kMostTold) {
        statement.push_back(
            {"process-begins", "And " + std::to_string(processes.size() - kMostTold) + " more."});
    }
}

void StateSettings(const std::vector<ClockSetting>& settings, std::vector<Finding>& statement) {
    const auto perhaps = static_cast<std::size_t>(std::count_if(
        settings.begin(), settings.end(), [](const ClockSetting& setting) { return setting.mayBeRestart; }));
    const char* const wrong = "; lines before that, and later ones of other logs, may be wrong by as much.";
    if (perhaps < settings.size()) {
        statement.push_back({"clock-set", "The wall clock was set " +
                                              Counted(settings.size() - perhaps, "time") +
                                              " while a process ran" + wrong});
    }
    if (perhaps > 0) {
        statement.push_back(
            {"clock-set-or-boot",
             "The wall clock was set " + Counted(perhaps, "time") +
                 " while a process ran, or the device restarted and a process with the same "
                 "threads went on. A log that is full rolls within 0.1 s of its last line; by "
                 "chance one in ten of other lines is as near" +
                 wrong});
    }
}

} // namespace

std::vector<Finding> LogSet::ClockStatement(std::span<const std::size_t> numbers) const {
    std::vector<Finding> statement;
    std::int64_t spread = -1;
    for (const LogRun& run : runs_) {
        spread = std::max(spread, run.wall ? run.wall->Spread() : -1);
    }
    if (spread > 0) {
        statement.push_back({"date-cut",
                             "Wall-clock times count from calibration lines; what these cut off may "
                             "make them later by up to " +
                                 Duration(spread) + ", all of one process alike."});
    }
    StateProcesses(processes_, numbers, statement);
    StateSettings(settings_, statement);
    std::int64_t unseen = 0;
    bool open = false;
    bool mayHideOlder = false;
    ForEachPart([&](const LogPart& part) {
        // Of an older round, what was written then may be lost.
        unseen += part.overwritten ? 0 : std::max<std::int64_t>(part.certainty.later, 0);
        mayHideOlder = mayHideOlder || (part.certainty.premise == Certainty::Premise::kRoundsAsFound &&
                                        part.certainty.earlier != Certainty::kUnbounded);
        open = open || (part.certainty.later == Certainty::kUnbounded && !part.notAfter);
    });
    if (unseen > 0) {
        statement.push_back({"silence", Counted(unseen, "second") +
                                            " passed without a line somewhere between calibration lines, or "
                                            "the clock was set forward by "
                                            "so much; times there may be later by that much."});
    }
    if (open) {
        statement.push_back(
            {"open-end",
             "After a process's last calibration line whole seconds without a line leave no trace, nor does "
             "a clock that is set: unless it was, times there (marked ~) are the earliest possible."});
    }
    if (mayHideOlder) {
        statement.push_back(
            {"unseen-rounds",
             "A log without backups can have been written over from its start, without a sign at one time in "
             "twenty: its first times (marked ~) hold unless older lines stand among them."});
    }
    return statement;
}

} // namespace NimaPost
