#include "tools/log/LogSet.h"

#include "tools/base/BackupName.h"
#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/log/Boots.h"
#include "tools/log/CollectedRuns.h"
#include "tools/log/Copies.h"
#include "tools/log/JoinedLogs.h"
#include "tools/log/LineReader.h"
#include "tools/log/LogMerge.h"
#include "tools/log/LogSurvey.h"
#include "tools/log/SilentOpeners.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <span>
#include <utility>

namespace NimaPost {

namespace {

constexpr std::uint64_t kMostBackups = 10;
/// So many settings of the clock are looked for in other logs, so that time stays bounded.
constexpr std::size_t kMostSettings = 64;

} // namespace

void LogSet::Add(Device& device) {
    for (EvidenceFile& each : device.files) {
        std::string problem;
        auto file = each.Open(problem);
        // A log that was rolled before its first line leaves an empty backup.
        if (!file) {
            unusable_.Damage("cannot-open", problem);
        } else if (!Holds(*file) && !Take(*file) && each.named && !(each.backup && file->Size() == 0)) {
            AddUnusable(*file);
        }
    }
}

/// Whether a file was added already, under whatever path.
bool LogSet::Holds(const InputFile& file) const {
    return std::any_of(sources_.begin(), sources_.end(),
                       [&](const Source& source) { return source.file.Identity() == file.Identity(); });
}

void LogSet::AddUnusable(const InputFile& file) {
    const std::string problem = file.ReadProblem();
    unusable_.Damage(problem.empty() ? "not-a-log" : "cannot-read",
                     file.Path() + ": " +
                         (!problem.empty()   ? problem
                          : file.Size() == 0 ? "empty"
                                             : "no line of a text log in it"));
}

bool LogSet::Take(InputFile& file) {
    const auto kind = LogKindOf(file.ReadAll(kFrontBytes));
    if (kind) {
        sources_.push_back({{std::move(file), *kind, {}}, {}, 0});
    }
    return kind.has_value();
}

void LogSet::Arrange() {
    std::map<LogKey, LogFiles> logs;
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        const BackupName name = SplitBackupName(sources_[i].file.PlainPath(), kMostBackups);
        logs[{name.base, sources_[i].kind}].emplace(name.number, i);
    }
    LeaveCopiesOut(logs);
    for (const auto& [key, files] : logs) {
        std::vector<LogPart>& parts = logs_.emplace_back();
        for (const auto& [number, index] : files) {
            for (LogPart& part : key.second == LogKind::kQueue ? SurveyQueue(index) : Survey(index)) {
                part.file = index;
                part.followsBackup = part.begin == 0 && !parts.empty() && parts.back().file != index;
                parts.push_back(std::move(part));
            }
        }
    }
    JudgeSilentOpeners(logs_);
    TimePlacer placer(runs_);
    for (std::vector<LogPart>& parts : logs_) {
        placer.Place(parts);
        if (!parts.empty() && parts.front().mayBeOlder) {
            sources_[parts.front().file].findings.Remark(
                "silent-opener",
                "The thread that opened the log wrote none of the lines after that: they are probably of its "
                "process, but may be older, of one whose first line was written over.");
        }
    }
    settings_ = placer.Settings();
    if (collected_) {
        laterThanCollected_ = PinCollectedRuns(*collected_, logs_, runs_);
    }
    ArrangeProcesses();
}

/// A file that holds the same lines as another tells of no process of its own.
void LogSet::LeaveCopiesOut(std::map<LogKey, LogFiles>& logs) {
    // Of two that are alike, the one with backups, or without them the first, is the log.
    std::vector<std::pair<LogFiles*, std::size_t>> order;
    for (const bool hasBackups : {true, false}) {
        for (auto& [key, files] : logs) {
            for (const auto& [number, index] : files) {
                if ((files.size() > 1) == hasBackups) {
                    order.emplace_back(&files, index);
                }
            }
        }
    }
    std::vector<const LogFile*> files;
    files.reserve(order.size());
    for (const auto& [log, index] : order) {
        files.push_back(&sources_[index]);
    }
    const auto copies = FindCopies(files);
    for (std::size_t i = 0; i < order.size(); ++i) {
        const auto& [log, index] = order[i];
        if (copies[i]) {
            sources_[index].findings.Remark("same-lines",
                                            "Holds the same lines as " + files[*copies[i]]->file.Path() +
                                                ", or the first of them: a copy, which is left out.");
            std::erase_if(*log, [&, copy = index](const auto& each) { return each.second == copy; });
        }
    }
}

void LogSet::ArrangeProcesses() {
    const auto find = [&] {
        std::vector<LogProcess> found;
        for (std::size_t log = 0; log < logs_.size(); ++log) {
            if (!logs_[log].empty() && sources_[logs_[log].front().file].kind != LogKind::kQueue) {
                FindProcesses(log, logs_[log], runs_, found);
            }
        }
        return found;
    };
    const JoinedLogs joined(find(), runs_);
    // Joining has moved the origins of their times.
    processes_ = find();
    NumberBoots(processes_, joined);
    SortProcesses(joined);
    DoubtClocksThatWereSet();
    settingsBefore_.assign(runs_.size(), 0);
    for (const ClockSetting& setting : settings_) {
        settingsBefore_[setting.newRun] = settingsBefore_[setting.oldRun] + 1;
    }
}

/// One log shows that the wall clock was set; others of the same boot, on the clock as it was, tell nothing
/// of it and are in doubt from then on.
void LogSet::DoubtClocksThatWereSet() {
    std::vector<const LogPart*> firstOfRun(runs_.size());
    ForEachPart([&](const LogPart& part) {
        if (part.date && part.process && firstOfRun[part.run] == nullptr) {
            firstOfRun[part.run] = &part;
        }
    });
    const auto fit = [&](const LogPart& from, const LogPart& other) {
        return runs_[from.run].wall->Compare(*other.date,
                                             from.start + StepForward(from.firstCounter, other.firstCounter));
    };
    std::vector<std::optional<std::int64_t>> setAfter(runs_.size());
    for (const ClockSetting& setting :
         std::span(settings_).first(std::min(settings_.size(), kMostSettings))) {
        const LogPart& before = *firstOfRun[setting.oldRun];
        const LogPart& after = *firstOfRun[setting.newRun];
        for (const LogPart* other : firstOfRun) {
            if (other == nullptr || other->run == setting.oldRun || other->run == setting.newRun ||
                processes_[*other->process].boot != processes_[*before.process].boot) {
                continue;
            }
            const WallOffset::Fit old = fit(before, *other);
            if (old.misfit > kDateTakes ||
                (old.misfit > kFitsClosely && fit(after, *other).misfit <= kFitsClosely)) {
                continue;
            }
            const std::int64_t elapsed = before.start +
                                         StepForward(before.firstCounter, other->firstCounter) +
                                         old.unseen * kCounterPeriod;
            const std::int64_t moment = setting.after - elapsed + other->start;
            setAfter[other->run] = std::min(setAfter[other->run].value_or(moment), moment);
        }
    }
    for (std::vector<LogPart>& parts : logs_) {
        for (LogPart& part : parts) {
            part.setAfter = setAfter[part.run];
        }
    }
}

std::vector<LogPart> LogSet::Survey(std::size_t index) {
    Source& source = sources_[index];
    const std::uint64_t size = source.file.Size();
    LogSurvey survey = SurveyLog(source.file);
    source.quotes = std::move(survey.quotes);
    source.lines = survey.lines;
    if (survey.newestEnd) {
        source.findings.Remark("rewound", "The writer went on at the file's start: from byte " +
                                              std::to_string(*survey.newestEnd) +
                                              " on stand older lines, the first of them perhaps torn.");
    }
    if (survey.hidesSeam) {
        source.findings.Remark(
            "hidden-seam",
            "The writer may have gone on at the file's start, and nothing proves where its "
            "newest lines end: some may be older than those in front of them.");
    }
    if (survey.torn > 0) {
        source.findings.Damage("torn-line", Counted(survey.torn, "line") +
                                                " torn: a process opened the log in the middle of it.");
    }
    const auto doubtful = static_cast<std::size_t>(std::count_if(
        source.quotes.begin(), source.quotes.end(), [](const Quote& quote) { return !quote.proven; }));
    if (doubtful > 0) {
        source.findings.Remark("opening-or-text",
                               Counted(doubtful, "line") +
                                   " may be an opening by another process, or a text in a message that was "
                                   "traced; lines after it are told as of another process.");
    }
    std::array<char, 1> last{};
    if (size > 0 && source.file.ReadAt(size - 1, last) == 1 && last[0] != '\n') {
        source.findings.Remark("no-line-end",
                               "The last line has no end: the file was cut, or a writer did not finish.");
    }
    for (const LogPart& part : survey.parts) {
        if (part.clockBreaks > 0) {
            source.findings.Remark("clock-break", "From byte " + std::to_string(part.begin) +
                                                      " on the stamps do not fit one run of the clock in " +
                                                      Counted(part.clockBreaks, "place") + ".");
        }
    }
    return std::move(survey.parts);
}

std::vector<LogPart> LogSet::SurveyQueue(std::size_t index) {
    Source& source = sources_[index];
    LogPart part;
    part.end = source.file.Size();
    part.certainty = {0, 0};
    QueueClock clock;
    LineReader reader(source.file, LogKind::kQueue, 0, part.end);
    for (std::string_view text; reader.Next(text); ++source.lines) {
        const LogLine line = ParseQueueRecord(text);
        if (line.date) {
            const std::int64_t time = clock.Next(*line.date);
            part.queueFirst = part.stamped++ == 0 ? time : part.queueFirst;
        }
    }
    source.findings.Remark("dated-to-second",
                           "Dated, not stamped: times are right to the second, and within it may be later by "
                           "multiples of 65.536 milliseconds.");
    return {part};
}

void LogSet::SortProcesses(const JoinedLogs& joined) {
    /// What nothing dates comes last; its boot is 0. Within a log the order stands.
    using Key = std::pair<std::size_t, std::int64_t>;
    std::vector<Key> keys;
    std::vector<std::size_t> order;
    for (std::size_t i = 0; i < processes_.size(); ++i) {
        const LogProcess& process = processes_[i];
        const Key key{process.boot - 1, process.boot > 0 ? process.First() : 0};
        const bool first = i == 0 || processes_[i - 1].log != process.log;
        keys.push_back(first ? key : std::max(keys.back(), key));
        // One boot for both was not to be had where their logs contradict it.
        if (processes_[joined.First(i)].boot != process.boot || joined.First(i) == i) {
            order.push_back(i);
        }
    }
    std::stable_sort(order.begin(), order.end(),
                     [&](std::size_t a, std::size_t b) { return keys[a] < keys[b]; });
    std::vector<std::size_t> place(processes_.size());
    std::vector<LogProcess> sorted;
    for (std::size_t i = 0; i < order.size(); ++i) {
        place[order[i]] = i;
        sorted.push_back(processes_[order[i]]);
    }
    for (std::size_t i = 0; i < processes_.size(); ++i) {
        const std::size_t first = joined.First(i);
        if (first != i && processes_[first].boot == processes_[i].boot) {
            place[i] = place[first];
            sorted[place[i]].Absorb(processes_[i]);
        }
    }
    for (std::vector<LogPart>& parts : logs_) {
        for (LogPart& part : parts) {
            if (part.process) {
                part.nextOpening = processes_[*part.process].nextOpening;
                part.process = place[*part.process];
                part.othersProcess =
                    part.othersProcess ? std::optional(place[*part.othersProcess]) : std::nullopt;
            }
        }
    }
    processes_ = std::move(sorted);
}

void LogSet::ForEach(const std::function<bool(const LogEntry&)>& visitor, const LineSieve* sieve) const {
    std::vector<const LogFile*> files;
    for (const Source& source : sources_) {
        files.push_back(&source);
    }
    LogMerge merge(files, logs_, runs_, processes_, sieve);
    while (const LogEntry* entry = merge.Next()) {
        if (!visitor(*entry)) {
            return;
        }
    }
}

void LogSet::ForEachPart(const std::function<void(const LogPart&)>& visitor) const {
    for (const std::vector<LogPart>& parts : logs_) {
        for (const LogPart& part : parts) {
            visitor(part);
        }
    }
}

std::optional<LikelyBound> LogSet::LikelyBoundOf(const LogEntry& entry) const {
    const auto before = [&](std::int64_t moment, const char* assuming) {
        return LikelyBound{std::max<std::int64_t>(moment - entry.time, 0) / kSecond + 1, assuming};
    };
    if (!entry.hasTime || !entry.part->process || entry.certainty.later != Certainty::kUnbounded) {
        return std::nullopt;
    }
    if (entry.certainty.earlier == Certainty::kUnbounded) {
        return std::nullopt;
    }
    const auto& opening = entry.part->nextOpening;
    if (opening && *opening >= entry.time) {
        return before(*opening, "clock-not-set");
    }
    return LikelyBound{0, "no-silence-over-1s"};
}

Findings LogSet::ReadProblems() const {
    Findings problems;
    for (const Source& source : sources_) {
        const std::string problem = source.file.ReadProblem();
        if (!problem.empty()) {
            problems.Damage("cannot-read", source.file.Path() + ": " + problem);
        }
        const std::string limit = source.file.LimitProblem();
        if (!limit.empty()) {
            problems.Damage("archive-limit", source.file.Path() + ": " + limit);
        }
    }
    return problems;
}

std::optional<LogSet::Anchor> LogSet::LastAnchor() const {
    std::optional<Anchor> anchor;
    std::size_t latestBoot = 0;
    ForEachPart([&](const LogPart& part) {
        if (!part.process || !runs_[part.run].wall || part.stamped == 0) {
            return;
        }
        const std::int64_t wall = OriginOf(runs_[part.run]) + part.start + part.length;
        const LogProcess& process = processes_[*part.process];
        if (!process.IsDated()) {
            return;
        }
        const std::size_t boot = process.boot;
        if (!anchor || std::pair(boot, wall) >= std::pair(latestBoot, anchor->wall)) {
            anchor = Anchor{part.lastCounter, wall, *part.process, part.run};
            latestBoot = boot;
        }
    });
    return anchor;
}

} // namespace NimaPost
