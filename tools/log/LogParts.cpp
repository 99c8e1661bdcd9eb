#include "tools/log/LogParts.h"

#include "tools/base/CounterClock.h"
#include "tools/log/LineReader.h"
#include "tools/log/Rounds.h"

#include <algorithm>
#include <limits>
#include <set>
#include <utility>

namespace NimaPost {

namespace {

/// A log has one for each roll; calibration lines beyond these divide nothing, so that memory stays bounded.
constexpr std::size_t kMostParts = 1 << 18;
/// So many may stand in messages, for the same reason; others are told as openings.
constexpr std::size_t kMostQuotes = 1 << 14;
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
            part_.doubtful = line.doubtful || line.mayBeQuote;
            part_.mayBeQuote = line.mayBeQuote;
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

    /// What is known of the lines so far of the process that writes.
    LinesBefore SoFar() const {
        LinesBefore before;
        clock_.ForEachThread([&](std::uint32_t thread) { before.threads.push_back(thread); });
        before.counter = clock_.FrontierCounter();
        if (part_.calibration) {
            before.threads.push_back(part_.calibration->thread);
        }
        if (part_.date) {
            before.wall = part_.date->Earliest() + clock_.Frontier();
        }
        return before;
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

std::vector<LogPart> PartsOf(const InputFile& file, const std::vector<Quote>& quotes, ByteRange range,
                             bool cut = false) {
    Divider divider(range.begin, file.Size(), cut);
    LineReader reader(file, LogKind::kLines, range.begin, range.end, KnownQuotes(quotes));
    bool whole = false;
    for (std::string_view text; reader.Next(text); whole = text.ends_with('\n')) {
        divider.Line(reader.ParseHeader(text), reader.Offset(), whole);
    }
    return divider.Finish(range.end);
}

/// Finds calibration lines that stand in a message, while the lines of a log are read.
class QuoteJudge {
  public:
    QuoteJudge(const Divider& divider, bool byThreads) : divider_(divider), byThreads_(byThreads) {}

    /// The file's first line.
    void FirstLine(const LogLine& line, std::string_view text) {
        deviceEnds_ = IsCalibration(line) && text.ends_with("\r\n");
        if (IsCalibration(line)) {
            seen_.emplace(line.counter, line.thread);
        }
    }

    std::optional<Quote> Judge(const QuotePlace& place) {
        if (judged_ == kMostQuotes) {
            return std::nullopt;
        }
        LinesBefore before = divider_.SoFar();
        if (!place.atLineStart) {
            if (const LogLine holder = ParseLogHeader(place.line.substr(0, place.counter));
                holder.hasHeader) {
                before.threads.push_back(holder.thread);
                before.counter = holder.counter;
            }
        }
        std::sort(before.threads.begin(), before.threads.end());
        // No other opening has the same stamp.
        const bool repeats = Repeats(place);
        const bool isProven = repeats || (deviceEnds_ && !place.line.ends_with("\r\n"));
        const auto quote = JudgeQuote(place, before, isProven);
        suspects_ = suspects_ || (quote && !isProven);
        judged_ += quote ? 1 : 0;
        if (quote && (byThreads_ || isProven)) {
            found_.push_back(*quote);
            return quote;
        }
        return std::nullopt;
    }
    /// Whether the threads of lines told of any quote.
    bool Suspects() const { return suspects_; }

    std::vector<Quote> Take() { return std::move(found_); }

  private:
    /// Some of the digits may be torn text in front of the counter.
    bool Repeats(const QuotePlace& place) {
        bool repeats = false;
        LogLine line;
        for (std::size_t at = place.digits; !repeats && at <= place.counter; ++at) {
            line = ParseLogHeader(place.line.substr(at));
            repeats = line.hasHeader && seen_.contains({line.counter, line.thread});
        }
        if (line.hasHeader && seen_.size() < kMostParts) {
            seen_.emplace(line.counter, line.thread);
        }
        return repeats;
    }

    const Divider& divider_;
    bool byThreads_;
    bool suspects_ = false;
    std::size_t judged_ = 0; ///< to be quotes
    /// All lines that a device ends itself end in "\r\n"; not so in a log that was converted.
    bool deviceEnds_ = false;
    std::set<std::pair<std::int64_t, std::uint32_t>> seen_;
    std::vector<Quote> found_;
};

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
    RoundSorter(const InputFile& file, const std::vector<Quote>& quotes, const Rounds& rounds)
        : openings_(PartsOf(file, quotes, rounds.openings)), newest_(PartsOf(file, quotes, rounds.newest)) {
        if (!openings_.empty() && MayBeCut(openings_.front())) {
            openings_ = PartsOf(file, quotes, rounds.openings, true);
        }
        for (LogPart& part : newest_) {
            part.hidesSeam = rounds.hidden;
        }
        for (const ByteRange& range : rounds.older) {
            Add(PartsOf(file, quotes, range));
        }
        // Processes with the same threads cannot be told apart.
        for (std::size_t i = 0; i < openings_.size(); ++i) {
            sharesThreads_ = sharesThreads_ || IsOf(first_, i);
        }
        for (LogPart& part : sorted_) {
            part.processIsKnown = part.calibration || (part.processIsKnown && !sharesThreads_);
        }
        Move(openings_.size());
        const std::vector<LogPart> later = TakeLater();
        Append(newest_, false);
        Append(later, false);
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

    static bool Fit(const LogPart& a, const LogPart& b) {
        return a.date && b.date &&
               WallOffset(*a.date, 0).Compare(*b.date, StepForward(a.firstCounter, b.firstCounter)).misfit <=
                   kFitsClosely;
    }

    /// Openings after the newest round, which went on at the end, since the maximum had grown: their dates
    /// are later, and the newest round is on one clock with them or with an opening before them, or it is by
    /// threads of older rounds.
    std::vector<LogPart> TakeLater() {
        std::vector<LogPart> later;
        const LogPart& first = newest_.front();
        for (; !sorted_.empty(); sorted_.pop_back()) {
            const LogPart& opening = sorted_.back();
            const bool isLater = first.date && opening.date && opening.date->second > first.date->second;
            if (!isLater || opening.stamped < kAtOnce) {
                break;
            }
            const std::vector<LogPart> before(sorted_.begin(), sorted_.end() - 1);
            const bool isOfOlder = ShareAThread(before, newest_) && !ShareAThread({opening}, newest_);
            const bool isOnOneClock = !BeganWithTheDevice(*first.date, first.firstCounter) &&
                                      std::any_of(sorted_.begin(), sorted_.end(),
                                                  [&](const LogPart& each) { return Fit(each, first); });
            if (!isOfOlder && !isOnOneClock) {
                break;
            }
            later.insert(later.begin(), opening);
        }
        return later;
    }

    /// A process that opens a full log goes on at its start after fewer lines.
    static constexpr std::uint64_t kAtOnce = 4;

    /// A round may have ended inside the counter of an opening, which then has fewer digits than nine in ten
    /// have and does not fit the clock of the process that went on.
    bool MayBeCut(const LogPart& opening) const {
        return opening.date && opening.firstCounter < kUsualCounter &&
               !(newest_.size() == 1 && Fit(opening, newest_.front()));
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

/// One reading of a log's file.
class Surveyor {
  public:
    /// `byThreads`: whether the threads that write on tell of a quote.
    Surveyor(const InputFile& file, bool byThreads)
        : file_(file), divider_(0, file.Size()), judge_(divider_, byThreads) {
        bool whole = false;
        LineReader reader(file, LogKind::kLines, 0, file.Size(),
                          [&](const QuotePlace& place) { return judge_.Judge(place); });
        for (std::string_view text; reader.Next(text); whole = text.ends_with('\n')) {
            const LogLine line = reader.ParseHeader(text);
            if (lines_++ == 0) {
                judge_.FirstLine(line, text);
            }
            torn_ += reader.Joined() && !line.mayBeQuote ? 1 : 0;
            if (!reader.Quoted()) {
                detector_.Line(line, text, reader.Offset());
            }
            divider_.Line(line, reader.Offset(), whole);
        }
        rounds_ = detector_.Judge(file.Size());
    }

    bool IsRewound() const { return !rounds_.older.empty() || rounds_.openings.end > 0; }
    /// Whether it would be another reading by the threads.
    bool SuspectsQuotes() const { return judge_.Suspects(); }

    LogSurvey Take() {
        LogSurvey survey;
        survey.lines = lines_;
        survey.torn = torn_;
        survey.quotes = judge_.Take();
        survey.hidesSeam = rounds_.hidden;
        if (IsRewound()) {
            survey.newestEnd = rounds_.newest.end;
            survey.parts = RoundSorter(file_, survey.quotes, rounds_).Take();
            return survey;
        }
        survey.parts = divider_.Finish(file_.Size());
        for (LogPart& part : survey.parts) {
            part.hidesSeam = rounds_.hidden;
        }
        return survey;
    }

  private:
    const InputFile& file_;
    RoundDetector detector_;
    Divider divider_;
    QuoteJudge judge_;
    std::uint64_t lines_ = 0;
    std::uint64_t torn_ = 0;
    Rounds rounds_;
};

} // namespace

bool LogPart::HasThread(std::uint32_t thread) const {
    return std::binary_search(threads.begin(), threads.end(), thread);
}

LogSurvey SurveyLog(const InputFile& file) {
    // Of a log that went on at its start, the newest lines and what follows an opening at its end may be of
    // one process.
    Surveyor survey(file, false);
    return survey.SuspectsQuotes() && !survey.IsRewound() ? Surveyor(file, true).Take() : survey.Take();
}

} // namespace NimaPost
