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
