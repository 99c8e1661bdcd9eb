#include "tools/log/LogSet.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/log/LineReader.h"

#include <algorithm>
#include <filesystem>

namespace NimaPost {

namespace {

constexpr std::size_t kFrontBytes = 8192;
constexpr int kMostBackups = 10;

/// Times of the memory queue's records: the date's second, and within it as early as the order allows.
class QueueClock {
  public:
    std::int64_t Next(const RawDate& date) {
        std::int64_t time = date.Earliest();
        const std::int64_t end = (date.second + 1) * kSecond;
        while (time < last_ && last_ < end && time + kCutMicroseconds * 1000 < end) {
            time += kCutMicroseconds * 1000;
        }
        last_ = time;
        return time;
    }

  private:
    std::int64_t last_ = INT64_MIN;
};

/// What files are put in order by.
struct FileKey {
    std::size_t file;
    std::optional<RawDate> date;
    std::int64_t counter = 0;
    bool counts = false;
};

bool ComesBefore(const FileKey& a, const FileKey& b) {
    if (!a.date || !b.date) {
        return false;
    }
    const std::int64_t apart = a.date->second - b.date->second;
    if (apart < -1 || apart > 1 || !a.counts || !b.counts) {
        return apart < 0;
    }
    return StepForward(a.counter, b.counter) < kCounterPeriod / 2 && a.counter != b.counter;
}

} // namespace

std::int64_t OriginOf(const LogRun& run) {
    return run.wall ? run.wall->Earliest() : 0;
}

void LogSet::Add(const std::string& path, bool siblings) {
    std::string problem;
    auto file = InputFile::Open(path, problem);
    if (!file) {
        unusable_.Damage("cannot-open", problem);
        return;
    }
    if (Holds(*file)) {
        return;
    }
    const std::size_t before = sources_.size();
    if (!Take(*file)) {
        AddUnusable(*file);
        return;
    }
    if (siblings) {
        TakeBackups(path);
        // Backups hold what is older.
        std::rotate(sources_.begin() + static_cast<std::ptrdiff_t>(before),
                    sources_.begin() + static_cast<std::ptrdiff_t>(before) + 1, sources_.end());
    }
}

/// Whether a file was added already, under whatever path.
bool LogSet::Holds(const InputFile& file) const {
    return std::any_of(sources_.begin(), sources_.end(),
                       [&](const Source& source) { return source.file.Identity() == file.Identity(); });
}

void LogSet::TakeBackups(const std::string& path) {
    for (int number = kMostBackups; number >= 1; --number) {
        const std::string backup = path + "." + std::to_string(number);
        std::string problem;
        auto file = InputFile::Open(backup, problem);
        std::error_code error;
        if (file && !Holds(*file) && !Take(*file)) {
            AddUnusable(*file);
        } else if (!file && std::filesystem::exists(std::filesystem::symlink_status(backup, error))) {
            unusable_.Damage("cannot-open", problem);
        }
    }
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
        sources_.push_back({std::move(file), *kind, {}, 0, 0});
    }
    return kind.has_value();
}

void LogSet::Arrange() {
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        sources_[i].kind == LogKind::kQueue ? SurveyQueue(i) : Survey(i);
    }
    OrderFiles();
    PlaceParts();
}

void LogSet::Survey(std::size_t index) {
    Source& source = sources_[index];
    const std::uint64_t size = source.file.Size();
    LogSurvey survey = SurveyLog(source.file);
    source.lines = survey.lines;
    for (LogPart& part : survey.parts) {
        part.file = index;
    }
    if (survey.newestEnd) {
        source.overwrittenBytes = size - *survey.newestEnd;
        source.findings.Remark("rewound", "The writer went on at the file's start: from byte " +
                                              std::to_string(*survey.newestEnd) +
                                              " on stand older lines, the first of them perhaps torn.");
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
    parts_.insert(parts_.end(), survey.parts.begin(), survey.parts.end());
}

void LogSet::SurveyQueue(std::size_t index) {
    Source& source = sources_[index];
    LogPart part;
    part.file = index;
    part.end = source.file.Size();
    LineReader reader(source.file, LogKind::kQueue, 0, part.end);
    for (std::string_view text; reader.Next(text); ++source.lines) {
        const LogLine line = ParseQueueRecord(text);
        if (line.hasHeader && part.stamped++ == 0) {
            part.date = line.date;
        }
    }
    source.findings.Remark("dated-to-second",
                           "Dated, not stamped: times are right to the second, and within it may be later by "
                           "multiples of 65.536 milliseconds.");
    parts_.push_back(part);
}

/// Files stand in the order of their dates; dates within a second of each other are settled by the counters.
void LogSet::OrderFiles() {
    std::vector<FileKey> keys;
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        FileKey key{i, std::nullopt, 0, sources_[i].kind == LogKind::kLines};
        for (const LogPart& part : parts_) {
            if (part.file == i && part.date && !part.overwritten && !key.date) {
                key.date = part.date;
                key.counter = part.firstCounter;
            }
        }
        keys.push_back(key);
    }
    // The relation is no strict order among files of the same second, so nothing that relies on one may sort
    // them.
    for (std::size_t i = 1; i < keys.size(); ++i) {
        for (std::size_t j = i; j > 0 && ComesBefore(keys[j], keys[j - 1]); --j) {
            std::swap(keys[j], keys[j - 1]);
        }
    }
    std::vector<LogPart> ordered;
    for (const FileKey& key : keys) {
        std::copy_if(parts_.begin(), parts_.end(), std::back_inserter(ordered),
                     [&](const LogPart& part) { return part.file == key.file; });
    }
    parts_ = std::move(ordered);
}

void LogSet::PlaceParts() {
    std::optional<std::size_t> previous; ///< the part that the clock ran through last
    std::vector<std::size_t> tails;      ///< undated parts before a dated one, which their times hang on
    for (std::size_t i = 0; i < parts_.size(); ++i) {
        LogPart& part = parts_[i];
        if (sources_[part.file].kind == LogKind::kQueue || part.stamped == 0) {
            BeginRun(part);
        } else if (part.date) {
            PlaceDated(i, previous);
            HangTails(tails, i);
            tails.clear();
            previous = i;
        } else if (part.overwritten) {
            tails.push_back(i);
        } else {
            // Only the tail of a rewound file hangs on what follows it.
            BeginRun(part);
            tails.clear();
            previous.reset();
        }
    }
    for (const std::size_t left : tails) {
        BeginRun(parts_[left]);
    }
}

void LogSet::BeginRun(LogPart& part, LogRun run) {
    part.start = 0;
    part.run = runs_.size();
    runs_.push_back(std::move(run));
}

/// Joins a part to the run of the part before where one run of the clocks explains both dates.
void LogSet::PlaceDated(std::size_t index, std::optional<std::size_t> previous) {
    LogPart& part = parts_[index];
    std::optional<std::int64_t> unseen;
    if (previous) {
        const LogPart& last = parts_[*previous];
        part.start = last.start + last.length + StepWithFall(last.lastCounter, part.firstCounter, kDisorder);
        unseen = runs_[last.run].wall->Join(*part.date, part.start);
    }
    if (unseen) {
        part.run = parts_[*previous].run;
        part.start += *unseen * kCounterPeriod;
        parts_[*previous].certainty.later = *unseen;
    } else {
        BeginRun(part, LogRun{WallOffset(*part.date, 0)});
    }
}

/// Counts the times of tails back from the dated part that they stand before.
void LogSet::HangTails(const std::vector<std::size_t>& tails, std::size_t dated) {
    const LogPart* next = &parts_[dated];
    for (std::size_t k = tails.size(); k-- > 0;) {
        LogPart& tail = parts_[tails[k]];
        tail.run = next->run;
        tail.start =
            next->start - StepWithFall(tail.lastCounter, next->firstCounter, kDisorder) - tail.length;
        tail.certainty = {0, Certainty::kUnbounded};
        next = &tail;
    }
}

void LogSet::ForEach(const std::function<bool(const LogEntry&)>& visitor) const {
    for (const LogPart& part : parts_) {
        const Source& source = sources_[part.file];
        const bool queue = source.kind == LogKind::kQueue;
        const std::int64_t origin = part.start + OriginOf(runs_[part.run]);
        CounterClock clock;
        QueueClock queueClock;
        LogEntry entry;
        entry.part = &part;
        entry.certainty = queue ? Certainty{0, 0} : part.certainty;
        entry.hasWall = queue || runs_[part.run].wall.has_value();
        LineReader reader(source.file, source.kind, part.begin, part.end);
        for (std::string_view text; reader.Next(text);) {
            entry.line = queue ? ParseQueueRecord(text) : ParseLogLine(text);
            entry.text = WithoutLineEnd(text);
            entry.offset = reader.Offset();
            entry.continued = !entry.line.hasHeader;
            if (entry.line.hasHeader) {
                entry.time = queue ? queueClock.Next(*entry.line.date)
                                   : origin + clock.Next(entry.line.counter, OrderedThread(entry.line));
                entry.hasTime = true;
            }
            if (!visitor(entry)) {
                return;
            }
        }
    }
}

std::vector<Finding> LogSet::ClockStatement() const {
    std::vector<Finding> statement;
    std::size_t dated = 0;
    for (const LogRun& run : runs_) {
        if (!run.wall) {
            continue;
        }
        ++dated;
        std::string spread;
        AppendSeconds(spread, run.wall->Spread());
        statement.push_back({"date-cut",
                             "Wall-clock times count from calibration lines; what these cut off may make "
                             "them later by up to " +
                                 spread.substr(1) + " s, all alike."});
    }
    if (dated > 1) {
        statement.push_back({"clock-set", "The clocks ran " + std::to_string(dated) +
                                              " times: the device started anew, or its clock was set."});
    }
    std::int64_t unseen = 0;
    bool open = false;
    for (const LogPart& part : parts_) {
        unseen += std::max<std::int64_t>(part.certainty.later, 0);
        open = open || part.certainty.later == Certainty::kUnbounded;
    }
    if (unseen > 0) {
        statement.push_back(
            {"silence",
             Counted(unseen, "second") +
                 " passed without a line somewhere between calibration lines; times there may be later "
                 "by that much."});
    }
    if (open) {
        statement.push_back(
            {"open-end",
             "Behind the last calibration line whole seconds without a line leave no trace: times "
             "there (marked ~) are the earliest possible."});
    }
    return statement;
}

Findings LogSet::ReadProblems() const {
    Findings problems;
    for (const Source& source : sources_) {
        const std::string problem = source.file.ReadProblem();
        if (!problem.empty()) {
            problems.Damage("cannot-read", source.file.Path() + ": " + problem);
        }
    }
    return problems;
}

std::optional<LogSet::Anchor> LogSet::LastAnchor() const {
    for (std::size_t i = parts_.size(); i-- > 0;) {
        const LogPart& part = parts_[i];
        if (part.stamped > 0 && sources_[part.file].kind == LogKind::kLines && runs_[part.run].wall) {
            return Anchor{part.lastCounter, OriginOf(runs_[part.run]) + part.start + part.length};
        }
    }
    return std::nullopt;
}

} // namespace NimaPost
