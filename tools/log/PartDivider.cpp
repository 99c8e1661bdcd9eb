#include "tools/log/PartDivider.h"

#include "tools/log/LineReader.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace NimaPost {

namespace {

/// Of fewer lines, no thread can be expected to have written one.
constexpr std::uint64_t kLeastToJudge = 3;

/// How far marks are apart: a share of the file, but not too little.
constexpr std::uint64_t kMostMarks = 1024;
constexpr std::uint64_t kLeastBetweenMarks = 1 << 18;
/// Each mark has a clock, which knows the threads. With many of them there are fewer marks, and with more
/// than any device has there are none.
constexpr std::uint64_t kFewThreads = 16;
constexpr std::uint64_t kManyThreads = 1024;
constexpr std::uint64_t kNoMark = std::numeric_limits<std::uint64_t>::max();

} // namespace

PartDivider::PartDivider(std::uint64_t begin, std::uint64_t fileSize, bool cut)
    : betweenMarks_(std::max(fileSize / kMostMarks, kLeastBetweenMarks)), cut_(cut) {
    part_.begin = begin;
    nextMark_ = begin + betweenMarks_;
}

void PartDivider::Line(const LogLine& line, std::uint64_t offset, bool whole) {
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

LinesBefore PartDivider::SoFar() const {
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

std::vector<LogPart> PartDivider::Finish(std::uint64_t end) {
    Close(end);
    return std::move(parts_);
}

void PartDivider::Mark(std::uint64_t offset) {
    std::uint64_t threads = 0;
    clock_.ForEachThread([&](std::uint32_t /*thread*/) { ++threads; });
    if (threads > kManyThreads) {
        nextMark_ = kNoMark;
        return;
    }
    part_.marks.push_back({offset, clock_});
    nextMark_ = offset + betweenMarks_ * (1 + threads / kFewThreads);
}

void PartDivider::Close(std::uint64_t at) {
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
            part_.stamped > kLeastToJudge &&
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

std::vector<LogPart> PartsOf(const InputFile& file, const std::vector<Quote>& quotes, ByteRange range,
                             bool cut) {
    PartDivider divider(range.begin, file.Size(), cut);
    LineReader reader(file, LogKind::kLines, range.begin, range.end, KnownQuotes(quotes));
    bool whole = false;
    for (std::string_view text; reader.Next(text); whole = text.ends_with('\n')) {
        divider.Line(reader.ParseHeader(text), reader.Offset(), whole);
    }
    return divider.Finish(range.end);
}

} // namespace NimaPost
