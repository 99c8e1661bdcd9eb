#include "tools/log/LogParts.h"

#include "tools/base/CounterClock.h"
#include "tools/log/LineReader.h"
#include "tools/log/Rounds.h"

#include <algorithm>
#include <utility>

namespace NimaPost {

namespace {

/// A log has one for each roll; calibration lines beyond these divide nothing, so that memory stays bounded.
constexpr std::size_t kMostParts = 1 << 18;

/// Divides a range of lines at calibration lines and runs the clock over each part.
class Divider {
  public:
    explicit Divider(std::uint64_t begin) { part_.begin = begin; }

    void Line(const LogLine& line, std::uint64_t offset) {
        if (!line.hasHeader) {
            return;
        }
        const bool calibrates = IsCalibration(line);
        if (calibrates && parts_.size() < kMostParts) {
            Close(offset);
            part_.calibration = LineStamp{line.counter, line.thread};
            part_.date = line.stamped ? CalibrationDate(line) : std::nullopt;
        }
        if (!line.stamped) {
            return;
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
    void Close(std::uint64_t at) {
        part_.end = at;
        part_.length = clock_.Frontier();
        part_.lastCounter = clock_.FrontierCounter();
        part_.clockBreaks = clock_.Breaks();
        part_.mostFirstSecond = clock_.MostFirstSecond();
        part_.leastLastSecond = clock_.LeastLastSecond();
        if (part_.calibration) {
            part_.threads.push_back(part_.calibration->thread);
        }
        clock_.ForEachThread([&](std::uint32_t thread) { part_.threads.push_back(thread); });
        std::sort(part_.threads.begin(), part_.threads.end());
        part_.threads.erase(std::unique(part_.threads.begin(), part_.threads.end()), part_.threads.end());
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

void AppendParts(const InputFile& file, ByteRange range, bool overwritten, std::vector<LogPart>& parts) {
    Divider divider(range.begin);
    LineReader reader(file, LogKind::kLines, range.begin, range.end);
    for (std::string_view text; reader.Next(text);) {
        divider.Line(reader.Parse(text), reader.Offset());
    }
    for (LogPart& part : divider.Finish(range.end)) {
        part.overwritten = overwritten;
        parts.push_back(part);
    }
}

} // namespace

bool LogPart::HasThread(std::uint32_t thread) const {
    return std::binary_search(threads.begin(), threads.end(), thread);
}

LogSurvey SurveyLog(const InputFile& file) {
    LogSurvey survey;
    RoundDetector detector;
    Divider divider(0);
    LineReader reader(file, LogKind::kLines, 0, file.Size());
    for (std::string_view text; reader.Next(text); ++survey.lines) {
        const LogLine line = reader.Parse(text);
        survey.torn += reader.Joined() ? 1 : 0;
        detector.Line(line, text, reader.Offset());
        divider.Line(line, reader.Offset());
    }
    const Rounds rounds = detector.Judge(file.Size());
    survey.hidesSeam = rounds.hidden;
    if (rounds.ranges.size() == 1) {
        survey.parts = divider.Finish(file.Size());
        for (LogPart& part : survey.parts) {
            part.hidesSeam = rounds.hidden;
        }
        return survey;
    }
    survey.newestEnd = rounds.ranges.back().end;
    for (const ByteRange& range : rounds.ranges) {
        AppendParts(file, range, range.begin != 0, survey.parts);
    }
    return survey;
}

} // namespace NimaPost
