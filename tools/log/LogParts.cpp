#include "tools/log/LogParts.h"

#include "tools/base/CounterClock.h"
#include "tools/log/LineReader.h"
#include "tools/log/Rounds.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace NimaPost {

namespace {

/// A log has one for each roll; calibration lines beyond these divide nothing, so that memory stays bounded.
constexpr std::size_t kMostParts = 1 << 18;
/// Counters below it have fewer digits than others.
constexpr std::int64_t kUsualCounter = kSecond / 10;
/// Of fewer lines, no thread can be expected to have written one.
constexpr std::uint64_t kFewLines = 3;

/// How far marks are apart: a share of the file, but not too little.
constexpr std::uint64_t kMostMarks = 1024;
constexpr std::uint64_t kLeastBetweenMarks = 1 << 18;
/// Each mark has a clock, which knows the threads. With many of them there are fewer marks, and with more
/// than any device has there are none.
constexpr std::uint64_t kFewThreads = 16;
constexpr std::uint64_t kManyThreads = 1024;
constexpr std::uint64_t kNoMark = std::numeric_limits<std::uint64_t>::max();

/// Divides a range of lines at calibration lines and runs the clock over each part.
class Divider {
  public:
    /// `cut`: what the first line begins with is not its counter's first digit.
    Divider(std::uint64_t begin, std::uint64_t fileSize, bool cut = false)
        : betweenMarks_(std::max(fileSize / kMostMarks, kLeastBetweenMarks)), cut_(cut) {
        part_.begin = begin;
        nextMark_ = begin + betweenMarks_;
    }

    /// A line is whole if the one before it has an end.
    void Line(const LogLine& line, std::uint64_t offset, bool whole) {
        const bool stamped = line.stamped && !std::exchange(cut_, false);
        if (!line.hasHeader) {
            part_.beginsInside = part_.beginsInside || offset == part_.begin;
            part_.restFollows = part_.restFollows || (part_.calibration && part_.stamped == 1);
            return;
        }
        const bool calibrates = IsCalibration(line);
        if (calibrates && parts_.size() < kMostParts) {
            Close(offset);
            part_.calibration = LineStamp{line.counter, line.thread};
            part_.date = stamped ? CalibrationDate(line) : std::nullopt;
            part_.calibrationHasStamp = stamped;
            part_.doubtful = line.doubtful;
            // Read from there on, the line passes for a stamped one, and the clock is another.
            nextMark_ = stamped ? nextMark_ : kNoMark;
        }
        if (!stamped) {
            return;
        }
        if (offset >= nextMark_ && whole && !calibrates && part_.stamped > 0) {
            Mark(offset);
        }
        if (part_.stamped++ == 0) {
            part_.firstCounter = line.counter;
        } else if (!part_.second) {
            part_.second = LineStamp{line.counter, line.thread};
        }
        if (!calibrates) {
            part_.last = LineStamp{line.counter, line.thread};
        }
        clock_.Next(line.counter, OrderedThread(line));
    }

    /// The parts, the last one ending at `end`.
    std::vector<LogPart> Finish(std::uint64_t end) {
        Close(end);
        return std::move(parts_);
    }

  private:
    void Mark(std::uint64_t offset) {
        std::uint64_t threads = 0;
        clock_.ForEachThread([&](std::uint32_t /*thread*/) { ++threads; });
        if (threads > kManyThreads) {
            nextMark_ = kNoMark;
            return;
        }
        part_.marks.push_back({offset, clock_});
        nextMark_ = offset + betweenMarks_ * (1 + threads / kFewThreads);
    }

    void Close(std::uint64_t at) {
        part_.end = at;
        part_.length = clock_.Frontier();
        part_.lastCounter = clock_.FrontierCounter();
        part_.clockBreaks = clock_.Breaks();
        part_.overcounted = clock_.MostOvercounted();
        part_.mostFirstSecond = clock_.MostFirstSecond();
        part_.leastLastSecond = clock_.LeastLastSecond();
        clock_.ForEachThread([&](std::uint32_t thread) { part_.threads.push_back(thread); });
        if (part_.calibration) {
            const std::uint32_t opener = part_.calibration->thread;
            part_.openerIsSilent =
                part_.stamped > kFewLines &&
                std::find(part_.threads.begin(), part_.threads.end(), opener) == part_.threads.end();
            part_.threads.push_back(opener);
        }
        std::sort(part_.threads.begin(), part_.threads.end());
        part_.threads.erase(std::unique(part_.threads.begin(), part_.threads.end()), part_.threads.end());
        if (part_.end > part_.begin) {
            parts_.push_back(std::move(part_));
        }
        part_ = LogPart();
        part_.begin = at;
        nextMark_ = at + betweenMarks_;
        clock_ = CounterClock();
    }

    std::vector<LogPart> parts_;
    LogPart part_;
    CounterClock clock_;
    std::uint64_t betweenMarks_;
    std::uint64_t nextMark_;
    bool cut_;
};

std::vector<LogPart> PartsOf(const InputFile& file, ByteRange range, bool cut = false) {
    Divider divider(range.begin, file.Size(), cut);
    LineReader reader(file, LogKind::kLines, range.begin, range.end);
    bool whole = false;
    for (std::string_view text; reader.Next(text); whole = text.ends_with('\n')) {
        divider.Line(reader.ParseHeader(text), reader.Offset(), whole);
    }
    return divider.Finish(range.end);
}

bool AnyHasThread(const std::vector<LogPart>& parts, std::uint32_t thread) {
    return std::any_of(parts.begin(), parts.end(),
                       [&](const LogPart& part) { return part.HasThread(thread); });
}

bool ShareAThread(const std::vector<LogPart>& a, const std::vector<LogPart>& b) {
    return std::any_of(a.begin(), a.end(), [&](const LogPart& part) {
        return std::any_of(part.threads.begin(), part.threads.end(),
                           [&](std::uint32_t thread) { return AnyHasThread(b, thread); });
    });
}

/// The rounds of a file in the order of time. A process that opens a full log leaves a calibration line at
/// its end and then goes on at its start, so its rounds follow that line. They are known by their threads,
/// unless the first process had the same.
class RoundSorter {
  public:
    RoundSorter(const InputFile& file, const Rounds& rounds)
        : openings_(PartsOf(file, rounds.openings)), newest_(PartsOf(file, rounds.newest)) {
        if (!openings_.empty() && MayBeCut(openings_.front())) {
            openings_ = PartsOf(file, rounds.openings, true);
        }
        for (LogPart& part : newest_) {
            part.hidesSeam = rounds.hidden;
        }
        for (const ByteRange& range : rounds.older) {
            Add(PartsOf(file, range));
        }
        // Processes with the same threads cannot be told apart.
        for (std::size_t i = 0; i < openings_.size(); ++i) {
            sharesThreads_ = sharesThreads_ || IsOf(first_, i);
        }
        for (LogPart& part : sorted_) {
            part.processIsKnown = part.calibration || (part.processIsKnown && !sharesThreads_);
        }
        Move(openings_.size());
        Append(newest_, false);
    }

    std::vector<LogPart> Take() { return std::move(sorted_); }

  private:
    void Add(std::vector<LogPart> round) {
        const bool first = sorted_.empty();
        std::size_t owners = 0;
        for (std::size_t i = 0; i < openings_.size(); ++i) {
            owners += IsOf(round, i) ? 1 : 0;
        }
        for (LogPart& part : round) {
            part.processIsKnown = owners < 2;
        }
        for (std::size_t i = openings_.size(); !first && i > moved_; --i) {
            if (IsOf(round, i - 1) && !IsOf(first_, i - 1)) {
                Move(i);
            }
        }
        first_ = first ? round : first_;
        Append(round, true);
    }

    /// A round may have ended inside the counter of an opening, which then has fewer digits than nine in ten
    /// have and does not fit the clock of the process that went on.
    bool MayBeCut(const LogPart& opening) const {
        const auto fits = [&](const LogPart& first) {
            return first.date &&
                   WallOffset(*opening.date, 0)
                           .Compare(*first.date, StepForward(opening.firstCounter, first.firstCounter))
                           .misfit <= kFitsClosely;
        };
        return opening.date && opening.firstCounter < kUsualCounter &&
               !(newest_.size() == 1 && fits(newest_.front()));
    }

    /// Whether a round may be by the process that wrote an opening.
    bool IsOf(const std::vector<LogPart>& round, std::size_t opening) const {
        return AnyHasThread(round, openings_[opening].calibration->thread) ||
               (opening + 1 == openings_.size() && ShareAThread(round, newest_));
    }

    void Move(std::size_t openings) {
        for (; moved_ < openings; ++moved_) {
            openings_[moved_].overwritten = true;
            sorted_.push_back(openings_[moved_]);
        }
    }

    void Append(const std::vector<LogPart>& round, bool overwritten) {
        for (const LogPart& part : round) {
            sorted_.push_back(part);
            sorted_.back().overwritten = overwritten;
        }
    }

    std::vector<LogPart> openings_;
    std::size_t moved_ = 0; ///< openings that stand in their place
    std::vector<LogPart> newest_;
    std::vector<LogPart> first_; ///< the oldest round
    bool sharesThreads_ = false; ///< with a process that opened the log later
    std::vector<LogPart> sorted_;
};

} // namespace

bool LogPart::HasThread(std::uint32_t thread) const {
    return std::binary_search(threads.begin(), threads.end(), thread);
}

LogSurvey SurveyLog(const InputFile& file) {
    LogSurvey survey;
    RoundDetector detector;
    Divider divider(0, file.Size());
    bool whole = false;
    LineReader reader(file, LogKind::kLines, 0, file.Size());
    for (std::string_view text; reader.Next(text); whole = text.ends_with('\n')) {
        ++survey.lines;
        const LogLine line = reader.ParseHeader(text);
        survey.torn += reader.Joined() ? 1 : 0;
        detector.Line(line, text, reader.Offset());
        divider.Line(line, reader.Offset(), whole);
    }
    const Rounds rounds = detector.Judge(file.Size());
    survey.hidesSeam = rounds.hidden;
    if (rounds.older.empty() && rounds.openings.end == 0) {
        survey.parts = divider.Finish(file.Size());
        for (LogPart& part : survey.parts) {
            part.hidesSeam = rounds.hidden;
        }
        return survey;
    }
    survey.newestEnd = rounds.newest.end;
    survey.parts = RoundSorter(file, rounds).Take();
    return survey;
}

} // namespace NimaPost
