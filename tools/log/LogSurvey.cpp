#include "tools/log/LogSurvey.h"

#include "tools/log/LineReader.h"
#include "tools/log/PartDivider.h"
#include "tools/log/RoundSorter.h"
#include "tools/log/Rounds.h"

#include <algorithm>
#include <set>
#include <utility>

namespace NimaPost {

namespace {

/// So many calibration lines may stand in messages, so that memory stays bounded; others are told as
/// openings.
constexpr std::size_t kMostQuotes = 1 << 14;

/// Finds calibration lines that stand in a message, while the lines of a log are read.
class QuoteJudge {
  public:
    QuoteJudge(const PartDivider& divider, bool byThreads) : divider_(divider), byThreads_(byThreads) {}

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

    const PartDivider& divider_;
    bool byThreads_;
    bool suspects_ = false;
    std::size_t judged_ = 0; ///< to be quotes
    /// All lines that a device ends itself end in "\r\n"; not so in a log that was converted.
    bool deviceEnds_ = false;
    std::set<std::pair<std::int64_t, std::uint32_t>> seen_;
    std::vector<Quote> found_;
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
    PartDivider divider_;
    QuoteJudge judge_;
    std::uint64_t lines_ = 0;
    std::uint64_t torn_ = 0;
    Rounds rounds_;
};

} // namespace

LogSurvey SurveyLog(const InputFile& file) {
    // Of a log that went on at its start, the newest lines and what follows an opening at its end may be of
    // one process.
    Surveyor survey(file, false);
    return survey.SuspectsQuotes() && !survey.IsRewound() ? Surveyor(file, true).Take() : survey.Take();
}

} // namespace NimaPost
