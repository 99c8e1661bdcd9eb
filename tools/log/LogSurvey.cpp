#include "tools/log/LogSurvey.h"

#include "tools/base/CounterClock.h"

#include <algorithm>
#include <array>
#include <bit>
#include <unordered_map>
#include <vector>

namespace NimaPost {

namespace {

/// A file passes its maximum by less than a buffer and a line, so rounds end within this of each other.
constexpr std::uint64_t kRoundsDiffer = 4096 + 2048;
/// From the stamp of the line that filled the log to the calibration line that it caused: a write of the
/// buffer.
constexpr std::int64_t kRollTakes = kSecond / 200;
/// The same on a device that is busy; too long to be proof by itself.
constexpr std::int64_t kSlowRollTakes = kSecond / 10;
/// From the last line of a log without a buffer to the calibration line.
constexpr std::int64_t kUnbufferedRollTakes = kSecond / 1000;
constexpr std::size_t kUnbufferedLines = 2;
constexpr std::int64_t kDisorder = kSecond / 10;
/// A step between rounds is any part of a second. One that is to be told from a thread's pause has to be
/// wider than what keeps a thread waiting on a busy device, and by far wider than others.
constexpr std::int64_t kStandsOut = 64;
constexpr std::int64_t kBusyWait = kSecond / 10;

/// A log has one for each roll; calibration lines beyond these divide nothing, so that memory stays bounded.
constexpr std::size_t kMostParts = 1 << 18;
/// Lines without a header beyond these are the way of this log, and no sign of anything.
constexpr std::size_t kMostTorn = 64;

/// A place between two stamped lines.
struct Step {
    std::int64_t width = -1;  ///< from one stamp to the next, read as a step forward
    std::uint64_t offset = 0; ///< where the lines behind it begin, a torn one included
    std::uint64_t from = 0;   ///< where the line in front of it begins
    bool torn = false;        ///< one line without header stands between
    bool cutHeader = false;   ///< and it looks like the rest of a line that had one
};

/// How wide steps are in a log, by powers of two.
class StepWidths {
  public:
    void Add(std::int64_t width) {
        ++counts_[static_cast<std::size_t>(std::bit_width(static_cast<std::uint64_t>(width)))];
        ++sum_;
    }
    /// What hardly any step exceeds.
    std::int64_t Usual() const {
        std::uint64_t below = 0;
        for (std::size_t bits = 0; bits < counts_.size(); ++bits) {
            below += counts_[bits];
            if (below * 100 >= sum_ * 99) {
                return std::int64_t{1} << bits;
            }
        }
        return kSecond;
    }

  private:
    std::array<std::uint64_t, 65> counts_{};
    std::uint64_t sum_ = 0;
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
            if (offset == 0) {
                first_ = line.counter;
                firstThread_ = line.thread;
                firstDate_ = date;
            } else if (firstDate_ && date->second < firstDate_->second && !dateFellAt_) {
                dateFellAt_ = offset;
            }
        } else if (first_ && !behindFirst_) {
            behindFirst_ = line.thread == firstThread_ ? StepForward(line.counter, *first_) : kSecond;
        }
        Consider(line, offset);
        previous_ = line.counter;
        previousOffset_ = offset;
        if (line.level != "CAL") {
            if (lastOfThread_.size() >= CounterClock::kMostThreads) {
                lastOfThread_.clear();
            }
            lastOfThread_[line.thread] = line.counter;
            last_[lines_++ % last_.size()] = {line.counter, line.thread};
        }
        headerless_ = 0;
    }

    /// Where rounds meet, in the order of the file: newer lines stand before each place and older ones behind
    /// it. Empty where nothing says that the writer went on at the file's start.
    std::vector<std::uint64_t> Judge(std::uint64_t size) const {
        std::vector<std::uint64_t> seams;
        if (!first_ || !IsProven()) {
            return seams;
        }
        const std::int64_t usual = widths_.Usual();
        for (const Step& step : torn_) {
            const bool sure = step.cutHeader || (torn_.size() < kMostTorn && step.width > usual);
            const bool follows = !seams.empty() && !step.cutHeader && step.offset + 2 * kRoundsDiffer < size;
            if (sure && !follows) {
                seams.push_back(step.offset);
            }
        }
        AddAlignedSeams(usual, size, seams);
        if (seams.empty() || (dateFellAt_ && seams.front() > *dateFellAt_)) {
            if (const Step* best = Best()) {
                seams.insert(seams.begin(), best->offset);
            }
        }
        return seams;
    }

  private:
    struct Stamp {
        std::int64_t counter = 0;
        std::uint32_t thread = 0;
    };

    /// The line that fills a log waits in the buffer while the log goes on at its start. So it stands behind
    /// the calibration line there, by the same thread and stamped a moment before it; behind one that was
    /// written at an opening all lines are later.
    bool IsProven() const {
        const bool anyCut =
            std::any_of(torn_.begin(), torn_.end(), [](const Step& step) { return step.cutHeader; });
        const bool early = behindFirst_ && *behindFirst_ > 0 && *behindFirst_ < kRollTakes;
        const bool otherSign = (!torn_.empty() && torn_.size() < kMostTorn) ||
                               std::any_of(widest_.begin(), widest_.end(), [&](const Step& step) {
                                   return StandsOut(step, widths_.Usual());
                               });
        const bool slow = behindFirst_ && *behindFirst_ > 0 && *behindFirst_ < kSlowRollTakes && otherSign;
        return anyCut || dateFellAt_ || early || slow || EndsAtFirst();
    }

    /// Without a buffer the line that filled the log is the last one of its round, or nearly.
    bool EndsAtFirst() const {
        return lines_ > last_.size() && std::any_of(last_.begin(), last_.end(), [&](const Stamp& stamp) {
                   return stamp.thread == firstThread_ &&
                          StepForward(stamp.counter, *first_) < kUnbufferedRollTakes;
               });
    }

    static bool StandsOut(const Step& step, std::int64_t usual) {
        return step.width > kStandsOut * usual && step.width > kBusyWait;
    }

    /// Rounds may also meet between two whole lines. Then the step there is far wider than others: in front
    /// of what is torn at the file's end, and among the last lines, where rounds of slightly different
    /// lengths end.
    void AddAlignedSeams(std::int64_t usual, std::uint64_t size, std::vector<std::uint64_t>& seams) const {
        const auto isNearEnd = [&](std::uint64_t offset) { return offset + 2 * kRoundsDiffer >= size; };
        const std::uint64_t torn = seams.empty() ? size : seams.front();
        const Step* first = nullptr;
        for (const Step& step : widest_) {
            if (StandsOut(step, usual) && step.offset < torn &&
                (first == nullptr || step.width > first->width)) {
                first = &step;
            }
        }
        // A line that was cut inside its counter passes for a whole one, with a step of its own behind it.
        for (const Step& step : widest_) {
            if (first != nullptr && StandsOut(step, usual) && step.offset == first->from) {
                first = &step;
            }
        }
        if (first != nullptr && isNearEnd(torn)) {
            seams.push_back(first->offset);
        }
        const std::uint64_t newestEnd = seams.empty() ? size : *std::min_element(seams.begin(), seams.end());
        for (const Step& step : widest_) {
            const bool behindCut = std::find(seams.begin(), seams.end(), step.from) != seams.end();
            if (StandsOut(step, usual) && step.offset > newestEnd && isNearEnd(step.offset) && !behindCut) {
                seams.push_back(step.offset);
            }
        }
        std::sort(seams.begin(), seams.end());
        seams.erase(std::unique(seams.begin(), seams.end()), seams.end());
    }

    /// The most likely place when none stands out: a torn line, or else the widest step.
    const Step* Best() const {
        const Step* best = nullptr;
        for (const auto* steps : {&torn_, &widest_}) {
            for (const Step& step : *steps) {
                if (step.width >= 0 && (!dateFellAt_ || step.offset <= *dateFellAt_) &&
                    (best == nullptr ||
                     std::pair(step.torn, step.width) > std::pair(best->torn, best->width))) {
                    best = &step;
                }
            }
        }
        return best;
    }

    void Consider(const LogLine& line, std::uint64_t offset) {
        if (!previous_) {
            return;
        }
        Step step;
        step.width = StepForward(*previous_, line.counter);
        if (step.width > kCounterPeriod - kDisorder) {
            // A small fall is a line that came late, unless its own thread had been further.
            const auto last = lastOfThread_.find(line.thread);
            const bool possible = last == lastOfThread_.end() ||
                                  StepForward(last->second, line.counter) < kCounterPeriod - kDisorder;
            step.width = possible ? 0 : step.width;
        }
        widths_.Add(step.width);
        step.torn = headerless_ == 1;
        step.cutHeader = step.torn && headerlessIsCut_;
        step.offset = headerless_ > 0 ? headerlessOffset_ : offset;
        step.from = previousOffset_;
        if (step.torn && (torn_.size() < kMostTorn || step.cutHeader) && torn_.size() < 2 * kMostTorn) {
            torn_.push_back(step);
        }
        const auto lightest = std::min_element(
            widest_.begin(), widest_.end(), [](const Step& x, const Step& y) { return x.width < y.width; });
        if (step.width > lightest->width) {
            *lightest = step;
        }
    }

    std::optional<std::int64_t> first_; ///< counter of the calibration line at the file's start
    std::uint32_t firstThread_ = 0;
    std::optional<RawDate> firstDate_;
    /// By how much the line behind it is stamped earlier; a second when another thread wrote it.
    std::optional<std::int64_t> behindFirst_;
    std::optional<std::uint64_t> dateFellAt_;
    std::optional<std::int64_t> previous_;
    std::uint64_t previousOffset_ = 0;
    std::unordered_map<std::uint32_t, std::int64_t> lastOfThread_;
    std::array<Stamp, kUnbufferedLines> last_;
    std::uint64_t lines_ = 0;
    std::vector<Step> torn_;
    std::vector<Step> widest_ = std::vector<Step>(8);
    StepWidths widths_;
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
    std::vector<std::uint64_t> seams = detector.Judge(file.Size());
    if (seams.empty()) {
        survey.parts = divider.Finish(file.Size());
        return survey;
    }
    survey.newestEnd = seams.front();
    std::uint64_t end = file.Size();
    std::reverse(seams.begin(), seams.end());
    for (const std::uint64_t seam : seams) {
        AppendParts(file, seam, end, true, survey.parts);
        end = seam;
    }
    AppendParts(file, 0, end, false, survey.parts);
    return survey;
}

} // namespace NimaPost
