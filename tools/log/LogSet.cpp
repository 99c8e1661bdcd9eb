#include "tools/log/LogSet.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/log/LogSurvey.h"

#include <algorithm>

namespace NimaPost {

namespace {

constexpr std::size_t kFrontBytes = 8192;
constexpr int kMostBackups = 10;
constexpr std::int64_t kDisorder = kSecond / 10;

/// From one stamp to the next, a little back where lines of two threads changed places.
std::int64_t SignedStep(std::int64_t from, std::int64_t to) {
    const std::int64_t step = StepForward(from, to);
    return step > kCounterPeriod - kDisorder ? step - kCounterPeriod : step;
}

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

} // namespace

std::int64_t OriginOf(const LogRun& run) {
    return run.wall ? run.wall->Earliest() : 0;
}

void LogSet::Add(const std::string& path, bool siblings) {
    const bool known = std::any_of(sources_.begin(), sources_.end(),
                                   [&](const Source& source) { return source.file.Path() == path; });
    if (known) {
        return;
    }
    std::string problem;
    auto file = InputFile::Open(path, problem);
    if (!file) {
        unusable_.push_back(problem);
        return;
    }
    const std::string front = file->ReadAll(kFrontBytes);
    const auto kind = LogKindOf(front);
    if (!kind) {
        unusable_.push_back(path + (front.empty() ? ": empty" : ": no line of a text log in it"));
        return;
    }
    if (siblings) {
        for (int number = kMostBackups; number >= 1; --number) {
            const std::string backup = path + "." + std::to_string(number);
            std::string ignored;
            if (InputFile::Open(backup, ignored)) {
                Add(backup, false);
            }
        }
    }
    sources_.push_back({std::move(*file), *kind, {}, 0, 0});
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
        source.findings.Remark("The writer went on at the file's start: from byte " +
                               std::to_string(*survey.newestEnd) +
                               " on stand older lines, the first of them perhaps torn.");
    }
    std::array<char, 1> last{};
    if (size > 0 && source.file.ReadAt(size - 1, last) == 1 && last[0] != '\n') {
        source.findings.Remark("The last line has no end: the file was cut, or a writer did not finish.");
    }
    for (const LogPart& part : survey.parts) {
        if (part.clockBreaks > 0) {
            source.findings.Remark("From byte " + std::to_string(part.begin) +
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
    source.findings.Remark(
        "Dated, not stamped: times are right to the second, and within it may be later by "
        "multiples of 65.536 milliseconds.");
    parts_.push_back(part);
}

/// Files stand in the order of their dates; dates within a second of each other are settled by the counters.
void LogSet::OrderFiles() {
    struct Key {
        std::size_t file;
        std::optional<RawDate> date;
        std::int64_t counter = 0;
        bool counts = false;
    };
    std::vector<Key> keys;
    for (std::size_t i = 0; i < sources_.size(); ++i) {
        Key key{i, std::nullopt, 0, sources_[i].kind == LogKind::kLines};
        for (const LogPart& part : parts_) {
            if (part.file == i && part.date && !part.overwritten && !key.date) {
                key.date = part.date;
                key.counter = part.firstCounter;
            }
        }
        keys.push_back(key);
    }
    const auto before = [](const Key& a, const Key& b) {
        if (!a.date || !b.date) {
            return false;
        }
        const std::int64_t apart = a.date->second - b.date->second;
        if (apart < -1 || apart > 1 || !a.counts || !b.counts) {
            return apart < 0;
        }
        return StepForward(a.counter, b.counter) < kCounterPeriod / 2 && a.counter != b.counter;
    };
    // The relation is no strict order among files of the same second, so nothing that relies on one may sort
    // them.
    for (std::size_t i = 1; i < keys.size(); ++i) {
        for (std::size_t j = i; j > 0 && before(keys[j], keys[j - 1]); --j) {
            std::swap(keys[j], keys[j - 1]);
        }
    }
    std::vector<LogPart> ordered;
    for (const Key& key : keys) {
        std::copy_if(parts_.begin(), parts_.end(), std::back_inserter(ordered),
                     [&](const LogPart& part) { return part.file == key.file; });
    }
    parts_ = std::move(ordered);
}

void LogSet::PlaceParts() {
    std::optional<std::size_t> previous; ///< the part that the clock ran through last
    std::vector<std::size_t> undated;    ///< parts in front of a dated one, which their times hang on
    for (std::size_t i = 0; i < parts_.size(); ++i) {
        LogPart& part = parts_[i];
        if (sources_[part.file].kind == LogKind::kQueue) {
            part.run = runs_.size();
            runs_.emplace_back();
            continue;
        }
        if (part.stamped == 0) {
            part.run = runs_.size();
            runs_.emplace_back();
            continue;
        }
        if (!part.date) {
            undated.push_back(i);
            // Only the tail of a rewound file hangs on what follows it.
            if (!part.overwritten) {
                part.run = runs_.size();
                runs_.emplace_back();
                undated.clear();
                previous.reset();
            }
            continue;
        }
        std::optional<std::int64_t> unseen;
        if (previous) {
            const LogPart& last = parts_[*previous];
            part.start = last.start + last.length + SignedStep(last.lastCounter, part.firstCounter);
            unseen = runs_[last.run].wall->Join(*part.date, part.start);
        }
        if (unseen) {
            part.run = parts_[*previous].run;
            part.start += *unseen * kCounterPeriod;
            parts_[*previous].certainty.later = *unseen;
        } else {
            part.start = 0;
            part.run = runs_.size();
            runs_.emplace_back(LogRun{WallOffset(*part.date, 0)});
        }
        const LogPart* next = &part;
        for (std::size_t k = undated.size(); k-- > 0;) {
            LogPart& tail = parts_[undated[k]];
            tail.run = part.run;
            tail.start = next->start - SignedStep(tail.lastCounter, next->firstCounter) - tail.length;
            tail.certainty = {0, Certainty::kUnbounded};
            next = &tail;
        }
        undated.clear();
        previous = i;
    }
    for (const std::size_t left : undated) {
        parts_[left].run = runs_.size();
        runs_.emplace_back();
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

std::vector<std::string> LogSet::ClockStatement() const {
    std::vector<std::string> statement;
    std::size_t dated = 0;
    for (const LogRun& run : runs_) {
        if (!run.wall) {
            continue;
        }
        ++dated;
        std::string spread;
        AppendSeconds(spread, run.wall->Spread());
        statement.push_back(
            "Wall-clock times count from calibration lines; what these cut off may make them later by up "
            "to " +
            spread.substr(1) + " s, all alike.");
    }
    if (dated > 1) {
        statement.push_back("The clocks ran " + std::to_string(dated) +
                            " times: the device started anew, or its clock was set.");
    }
    std::int64_t unseen = 0;
    bool open = false;
    for (const LogPart& part : parts_) {
        unseen += std::max<std::int64_t>(part.certainty.later, 0);
        open = open || part.certainty.later == Certainty::kUnbounded;
    }
    if (unseen > 0) {
        statement.push_back(
            Counted(unseen, "second") +
            " passed without a line somewhere between calibration lines; times there may be later "
            "by that much.");
    }
    if (open) {
        statement.emplace_back(
            "Behind the last calibration line whole seconds without a line leave no trace: times "
            "there (marked ~) are the earliest possible.");
    }
    return statement;
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
