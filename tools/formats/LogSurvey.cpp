#include "tools/formats/LogSurvey.h"

#include "tools/time/CounterClock.h"

#include <algorithm>
#include <array>
#include <unordered_map>

namespace NimaPost {

namespace {

/// A file passes its maximum by less than a buffer and a line, so rounds end within this of each other.
constexpr std::uint64_t kRoundsDiffer = 4096 + 2048;
/// A roll follows the line that caused it at once, in the same call.
constexpr std::int64_t kRollDelay = kSecond / 50;
constexpr std::int64_t kDisorder = kSecond / 10;
constexpr std::int64_t kTornCounts = 4;

/// A log has one for each roll; calibration lines beyond these divide nothing, so that memory stays bounded.
constexpr std::size_t kMostParts = 1 << 18;

/// A place where a line's stamp steps far ahead of the one before, or could not have followed it.
struct Step {
    std::int64_t width = -1;
    std::uint64_t offset = 0; ///< where the lines behind it begin, a torn one included
    bool torn = false;        ///< a line without header stands between
    bool cutHeader = false;   ///< and it looks like the rest of a line that had one
};

/// Where the stretches of a rewound file meet.
struct RewoundFile {
    std::uint64_t newestEnd = 0; ///< the newest lines stand before this offset
    std::uint64_t tailEnd = 0;   ///< from here on lines of a still older round, which was longer
};

/// What one reading of a file tells about rounds in it.
class RoundDetector {
  public:
    void Line(const LogLine& line, std::string_view text, std::uint64_t offset) {
        if (!line.hasHeader) {
            if (headerless_ == 0) {
                headerlessOffset_ = offset;
                headerlessIsCut_ = LooksLikeCutLine(text);
            }
            ++headerless_;
            return;
        }
        if (const auto date = CalibrationDate(line)) {
            if (!first_ && offset == 0) {
                first_ = line.counter;
                firstThread_ = line.thread;
                firstDate_ = date;
            } else if (firstDate_ && date->second < firstDate_->second && !dateFellAt_) {
                dateFellAt_ = offset;
            }
        }
        Consider(line, offset);
        previous_ = line.counter;
        if (line.level != "CAL") {
            if (lastOfThread_.size() >= CounterClock::kMostThreads) {
                lastOfThread_.clear();
            }
            lastOfThread_[line.thread] = line.counter;
        }
        headerless_ = 0;
    }

    std::optional<RewoundFile> Judge(const InputFile& file) const {
        if (!first_) {
            return std::nullopt;
        }
        RewoundFile rewound;
        rewound.tailEnd = file.Size();
        const bool closed = FindTailEnd(file, rewound.tailEnd);
        const Step* best = nullptr;
        for (const Step& step : widest_) {
            if (step.width >= 0 && step.offset < rewound.tailEnd &&
                (!dateFellAt_ || step.offset <= *dateFellAt_) &&
                (best == nullptr || Weight(step) > Weight(*best))) {
                best = &step;
            }
        }
        // Without the tie between the tail's end and the file's first line only a cut header or an older date
        // is proof.
        if (best == nullptr || (!closed && !best->cutHeader && !dateFellAt_)) {
            return std::nullopt;
        }
        rewound.newestEnd = best->offset;
        return rewound;
    }

  private:
    /// A cut header outweighs any width; a torn line without one makes up for some.
    static std::pair<bool, std::int64_t> Weight(const Step& step) {
        return {step.cutHeader, step.torn ? step.width * kTornCounts : step.width};
    }

    void Consider(const LogLine& line, std::uint64_t offset) {
        if (!previous_) {
            return;
        }
        Step step;
        step.width = Modulo(line.counter - *previous_, kCounterPeriod);
        if (step.width > kCounterPeriod - kDisorder) {
            // A small fall is a line that came late, unless its own thread had been further.
            const auto last = lastOfThread_.find(line.thread);
            const bool possible =
                last == lastOfThread_.end() ||
                Modulo(line.counter - last->second, kCounterPeriod) < kCounterPeriod - kDisorder;
            step.width = possible ? 0 : step.width;
        }
        step.torn = headerless_ > 0;
        step.cutHeader = step.torn && headerless_ == 1 && headerlessIsCut_;
        step.offset = step.torn ? headerlessOffset_ : offset;
        auto* lightest = std::min_element(widest_.begin(), widest_.end(),
                                          [](const Step& x, const Step& y) { return Weight(x) < Weight(y); });
        if (Weight(step) > Weight(*lightest)) {
            *lightest = step;
        }
    }

    /// The line that made the writer start over stands at the end of the round before: by the same thread,
    /// and a moment before the calibration line at the file's start.
    bool FindTailEnd(const InputFile& file, std::uint64_t& tailEnd) const {
        const std::uint64_t begin = file.Size() > 2 * kRoundsDiffer ? file.Size() - 2 * kRoundsDiffer : 1;
        LineReader reader(file, LogKind::kLines, begin, file.Size());
        bool found = false;
        for (std::string_view text; reader.Next(text);) {
            const LogLine line = ParseLogLine(text);
            if (line.hasHeader && line.thread == firstThread_ && line.level != "CAL" &&
                Modulo(*first_ - line.counter, kCounterPeriod) < kRollDelay) {
                tailEnd = reader.Offset() + text.size();
                found = true;
            }
        }
        return found;
    }

    std::optional<std::int64_t> first_; ///< counter of the calibration line at the file's start
    std::uint32_t firstThread_ = 0;
    std::optional<RawDate> firstDate_;
    std::optional<std::uint64_t> dateFellAt_;
    std::optional<std::int64_t> previous_;
    std::unordered_map<std::uint32_t, std::int64_t> lastOfThread_;
    std::array<Step, 3> widest_;
    std::uint64_t headerless_ = 0;
    std::uint64_t headerlessOffset_ = 0;
    bool headerlessIsCut_ = false;
};

/// Divides a range of lines at calibration lines and runs the clock over each part.
class Divider {
  public:
    explicit Divider(std::uint64_t begin) { part_.begin = begin; }

    void Line(const LogLine& line, std::uint64_t offset) {
        if (!line.hasHeader) {
            return;
        }
        const auto date = CalibrationDate(line);
        if (date && parts_.size() < kMostParts) {
            Close(offset);
            part_.date = date;
        }
        if (part_.stamped++ == 0) {
            part_.firstCounter = line.counter;
        }
        clock_.Next(line.counter, OrderedThread(line));
    }

    /// The parts, the last one ending at `end`.
    std::vector<LogPart> Finish(std::uint64_t end) {
        Close(end);
        return std::move(parts_);
    }

  private:
    void Close(std::uint64_t at) {
        part_.end = at;
        part_.length = clock_.Frontier();
        part_.lastCounter = clock_.FrontierCounter();
        part_.clockBreaks = clock_.Breaks();
        if (part_.end > part_.begin) {
            parts_.push_back(part_);
        }
        part_ = LogPart();
        part_.begin = at;
        clock_ = CounterClock();
    }

    std::vector<LogPart> parts_;
    LogPart part_;
    CounterClock clock_;
};

void AppendParts(const InputFile& file, std::uint64_t begin, std::uint64_t end, bool overwritten,
                 std::vector<LogPart>& parts) {
    Divider divider(begin);
    LineReader reader(file, LogKind::kLines, begin, end);
    for (std::string_view text; reader.Next(text);) {
        divider.Line(ParseLogLine(text), reader.Offset());
    }
    for (LogPart& part : divider.Finish(end)) {
        part.overwritten = overwritten;
        parts.push_back(part);
    }
}

} // namespace

LogSurvey SurveyLog(const InputFile& file) {
    LogSurvey survey;
    RoundDetector detector;
    Divider divider(0);
    LineReader reader(file, LogKind::kLines, 0, file.Size());
    for (std::string_view text; reader.Next(text); ++survey.lines) {
        const LogLine line = ParseLogLine(text);
        detector.Line(line, text, reader.Offset());
        divider.Line(line, reader.Offset());
    }
    if (const auto rewound = detector.Judge(file)) {
        survey.newestEnd = rewound->newestEnd;
        AppendParts(file, rewound->tailEnd, file.Size(), true, survey.parts);
        AppendParts(file, rewound->newestEnd, rewound->tailEnd, true, survey.parts);
        AppendParts(file, 0, rewound->newestEnd, false, survey.parts);
    } else {
        survey.parts = divider.Finish(file.Size());
    }
    return survey;
}

} // namespace NimaPost
