#include "tools/log/Rounds.h"

#include "tools/base/CounterClock.h"

#include <algorithm>
#include <bit>

namespace NimaPost {

namespace {

constexpr std::uint64_t kBuffer = 4096;
/// Few messages are longer, and where none is, the next one may be.
constexpr std::uint64_t kLongMessage = 2048;
/// A step between rounds is any part of a second. One that is to be told from a thread's pause has to be
/// wider than what keeps a thread waiting on a busy device, and by far wider than others, or most of a second
/// where hardly any other is as wide as such a wait.
constexpr std::int64_t kStandsOut = 64;
constexpr std::int64_t kBusyWait = kSecond / 10;

/// A tracer's lines are shorter; longer ones hold raw data and never had a header.
constexpr std::size_t kLongestTraced = 1100;

/// A counter lacks digits if the step after it would fit so by chance in fewer logs than one in this many.
constexpr std::int64_t kDigitsStandOut = 100;
constexpr std::size_t kMostWithoutDigits = 256;

/// So few lines of a process show few of its threads.
constexpr std::int64_t kFewLines = 5;

/// Lines without a header beyond these are the way of this log, and no sign of anything.
constexpr std::size_t kMostTorn = 64;
/// The same of lines after one that the device ended, which only raw data and cut lines are.
constexpr std::size_t kMostUnattached = 6;

} // namespace

void StepWidths::Add(std::int64_t width) {
    ++counts_[static_cast<std::size_t>(std::bit_width(static_cast<std::uint64_t>(width)))];
    ++sum_;
}

std::int64_t StepWidths::Quantile(std::uint64_t parts, std::uint64_t of) const {
    std::uint64_t below = 0;
    for (std::size_t bits = 0; bits < counts_.size(); ++bits) {
        below += counts_[bits];
        if (below * of >= sum_ * parts) {
            return std::int64_t{1} << bits;
        }
    }
    return kSecond;
}

bool StepWidths::IsRare(std::int64_t width) const {
    std::uint64_t asWide = 0;
    for (auto bits = static_cast<std::size_t>(std::bit_width(static_cast<std::uint64_t>(width)));
         bits < counts_.size(); ++bits) {
        asWide += counts_[bits];
    }
    return (asWide - 1) * 100 <= sum_; // It is one of them.
}

void RoundDetector::Line(const LogLine& line, std::string_view text, std::uint64_t offset) {
    if (!line.stamped && !IsCalibration(line)) {
        if (headerless_ == 0) {
            headerlessOffset_ = offset;
            headerlessCut_ = RestOfHeader(text);
            headerlessIsUnattached_ = endedByDevice_ && text.size() < kLongestTraced;
        }
        if (headerless_ > 0 && RestOfHeader(text) == HeaderRest::kInside) {
            headerlessCut_ = HeaderRest::kInside;
        }
        ++headerless_;
        endedByDevice_ = text.ends_with("\r\n");
        return;
    }
    longestMessage_ = std::max(longestMessage_, offset - previousOffset_);
    if (IsCalibration(line)) {
        Calibration(line, offset);
    } else {
        if (first_ && !afterFirst_) {
            afterFirst_ = line.thread == firstThread_ ? StepForward(line.counter, *first_) : kSecond;
        }
        Consider(line, offset);
        previous_ = line.counter;
        if (lastOfThread_.size() >= CounterClock::kMostThreads) {
            lastOfThread_.clear();
        }
        lastOfThread_.TryEmplace(line.thread, 0).first = line.counter;
        NoteThread(line.thread);
        last_[lines_++ % last_.size()] = {line.counter, line.thread};
        if (++linesOfOpening_ > 1) {
            openingAtEnd_.reset();
            endPrecedes_ = endMayPrecede_ = false;
        }
    }
    previousOffset_ = offset;
    headerless_ = 0;
    endedByDevice_ = text.ends_with("\r\n");
}

void RoundDetector::Calibration(const LogLine& line, std::uint64_t offset) {
    const auto date = line.stamped ? CalibrationDate(line) : std::nullopt;
    if (offset == 0 && date) {
        first_ = line.counter;
        firstThread_ = line.thread;
        firstDate_ = date;
    } else if (date && firstDate_) {
        datesRise_ = datesRise_ || date->second > firstDate_->second;
        if (date->second < firstDate_->second && !dateFellAt_) {
            dateFellAt_ = offset;
        }
        CompareWithFirst(*date, line);
    }
    if (offset > 0 && !firstOpening_) {
        firstOpening_ = offset;
    }
    if (headerless_ > 0 && headerlessCut_ != HeaderRest::kNone && torn_.size() < 2 * kMostTorn) {
        Step step;
        step.width = 0;
        step.torn = step.ends = true;
        step.cut = headerlessCut_;
        step.offset = headerlessOffset_;
        step.from = previousOffset_;
        torn_.push_back(step);
    }
    // What an opening process writes has nothing to do with the lines before it, nor does a silence in front
    // of its first line.
    previous_.reset();
    lastOfThread_.clear();
    openingAtEnd_ = openingAtEnd_.value_or(offset);
    linesOfOpening_ = 0;
}

void RoundDetector::CompareWithFirst(const RawDate& date, const LogLine& line) {
    // Of a clock that begins with the device all dates fit.
    if (date.second > firstDate_->second ||
        (line.thread != firstThread_ && BeganWithTheDevice(date, line.counter))) {
        return;
    }
    const WallOffset::Fit fit = WallOffset(date, 0).Compare(*firstDate_, StepForward(line.counter, *first_));
    const bool precedes = fit.unseen >= 0 && fit.misfit <= kFitsClosely;
    mayPrecede_ = mayPrecede_ || precedes;
    endPrecedes_ = endPrecedes_ || precedes;
    endMayPrecede_ = endMayPrecede_ || (fit.unseen >= 0 && fit.misfit <= kDateTakes);
}

Rounds RoundDetector::Judge(std::uint64_t size) const {
    Rounds rounds;
    if (!first_ || !IsProven()) {
        rounds.hidden = first_ && (HoldsARestAtAStep() || MayHaveGoneOn() || ThreadsChangeAtARest());
        rounds.newest = {0, size};
        return rounds;
    }
    const std::vector<Seam> seams = Seams(size);
    // Where the first seam is one of those near the file's end, the newest may be hidden in front of it.
    rounds.hidden = seams.empty() || seams.front().rank < Rank::kUnattached ||
                    seams.front().offset + RoundsDiffer(size) >= size;
    std::uint64_t end = size;
    if (openingAtEnd_.value_or(0) > (seams.empty() ? 0 : seams.back().offset)) {
        rounds.openings = {*openingAtEnd_, size};
        end = *openingAtEnd_;
    }
    std::for_each(seams.rbegin(), seams.rend(), [&](const Seam& seam) {
        rounds.older.push_back({seam.offset, end});
        end = seam.offset;
    });
    rounds.newest = {0, end};
    return rounds;
}

std::uint64_t RoundDetector::RoundsDiffer(std::uint64_t size) const {
    return kBuffer + std::max({longestMessage_, size - previousOffset_, kLongMessage});
}

std::vector<RoundDetector::Seam> RoundDetector::Seams(std::uint64_t size) const {
    // All rounds but the newest end near the file's end.
    const std::uint64_t nearEnd = size - std::min(size, RoundsDiffer(size));
    std::vector<Seam> seams;
    ForEachPlace([&](const Step& step) {
        const Rank rank = RankOf(step);
        const bool afterCut = std::any_of(seams.begin(), seams.end(),
                                          [&](const Seam& seam) { return seam.offset == step.from; });
        if (step.offset >= nearEnd && rank > Rank::kPossible && !(rank == Rank::kAligned && afterCut)) {
            seams.push_back({step.offset, rank});
        }
    });
    std::sort(seams.begin(), seams.end(), [](const Seam& a, const Seam& b) {
        return std::pair(a.offset, b.rank) < std::pair(b.offset, a.rank);
    });
    seams.erase(std::unique(seams.begin(), seams.end(),
                            [](const Seam& a, const Seam& b) { return a.offset == b.offset; }),
                seams.end());
    // A log is opened at its end, so no opening stands among the newest lines of a log that went on at its
    // start.
    const std::uint64_t newestEnd = std::min(firstOpening_.value_or(size), dateFellAt_.value_or(size));
    const Seam best = BestBefore(std::min(newestEnd, seams.empty() ? size : nearEnd));
    if (best.rank > (seams.empty() ? Rank::kNone : Rank::kPossible)) {
        seams.insert(seams.begin(), best);
    }
    if (!seams.empty() && seams.front().offset > newestEnd) {
        seams.clear();
    }
    return seams;
}

bool RoundDetector::IsProven() const {
    const bool early = afterFirst_ && *afterFirst_ > 0 && *afterFirst_ < kRollTakes;
    const bool slow = afterFirst_ && *afterFirst_ > 0 && *afterFirst_ < kSlowRollTakes && HoldsARest();
    return HoldsACut() || WasOpenedWhenFull() || (!datesRise_ && (early || slow || EndsAtFirst()));
}

bool RoundDetector::HoldsARest() const {
    return std::any_of(torn_.begin(), torn_.end(),
                       [&](const Step& step) { return RankOf(step) >= Rank::kUnattached; });
}

bool RoundDetector::HoldsARestAtAStep() const {
    return std::any_of(torn_.begin(), torn_.end(), [&](const Step& step) {
        return RankOf(step) >= Rank::kUnattached && step.width > std::min(widths_.Common(), kBusyWait);
    });
}

void RoundDetector::NoteThread(std::uint32_t thread) {
    if (firstLineOfThread_.size() < CounterClock::kMostThreads) {
        const auto line = static_cast<std::int64_t>(lines_);
        firstLineOfThread_.TryEmplace(thread, line);
        lastLineOfThread_.TryEmplace(thread, line).first = line;
    }
}

bool RoundDetector::ThreadsChangeAtARest() const {
    if (firstOpening_ || firstLineOfThread_.size() >= CounterClock::kMostThreads) {
        return false;
    }
    std::vector<std::pair<std::int64_t, std::int64_t>> lines; // the first and the last of each thread
    firstLineOfThread_.ForEach([&](std::uint32_t thread, std::int64_t first) {
        lines.emplace_back(first, *lastLineOfThread_.Find(thread));
    });
    std::sort(lines.begin(), lines.end());
    const auto end = static_cast<std::int64_t>(lines_);
    std::int64_t last = end; // of those so far; at first there is none
    for (const auto& [first, lastOfThread] : lines) {
        const bool anyRest = std::any_of(torn_.begin(), torn_.end(), [line = first](const Step& step) {
            return static_cast<std::int64_t>(step.line) == line;
        });
        if (last < first && anyRest && first >= kFewLines && end - first >= kFewLines) {
            return true;
        }
        last = last == end ? lastOfThread : std::max(last, lastOfThread);
    }
    return false;
}

bool RoundDetector::HoldsACut() const {
    const auto isMarked = [](const Step& step) { return step.cut == HeaderRest::kMark && !step.ends; };
    const bool few =
        static_cast<std::size_t>(std::count_if(torn_.begin(), torn_.end(), isMarked)) < kMostUnattached;
    return std::any_of(torn_.begin(), torn_.end(), [&](const Step& step) {
        return step.cut == HeaderRest::kInside ||
               (few && isMarked(step) && step.width > kBusyWait && widths_.IsRare(step.width));
    });
}

bool RoundDetector::WasOpenedWhenFull() const {
    return openingAtEnd_.value_or(0) > 0 && endPrecedes_ && !datesRise_;
}

bool RoundDetector::EndsAtFirst() const {
    return lines_ > last_.size() && std::any_of(last_.begin(), last_.end(), [&](const LineStamp& stamp) {
               return stamp.thread == firstThread_ &&
                      StepForward(stamp.counter, *first_) < kUnbufferedRollTakes;
           });
}

bool RoundDetector::StandsOut(const Step& step, std::int64_t usual) {
    const bool far = step.width > kStandsOut * usual && step.width > kBusyWait;
    return far || (usual < kBusyWait && step.width > kSecond / 2);
}

template <class Visitor>
void RoundDetector::ForEachPlace(const Visitor& visitor) const {
    for (const auto* steps : {&torn_, &withoutDigits_, &widest_}) {
        std::for_each(steps->begin(), steps->end(), visitor);
    }
}

RoundDetector::Rank RoundDetector::RankOf(const Step& step) const {
    if (step.digitsCount > 0) {
        const std::int64_t byChance = widths_.Common() * static_cast<std::int64_t>(withoutDigits_.size());
        const bool fits =
            step.stepWithDigits <= widths_.Common() && byChance <= step.digitsCount / kDigitsStandOut;
        return fits ? Rank::kWide : Rank::kNone;
    }
    const bool few = torn_.size() < kMostTorn;
    const bool cut =
        step.cut == HeaderRest::kInside ||
        (step.cut == HeaderRest::kMark && (step.ends || step.width > std::min(widths_.Common(), kBusyWait)));
    return cut ? Rank::kHeader
           : step.unattached && (unattached_ < kMostUnattached || (few && step.width > widths_.Common()))
               ? Rank::kUnattached
           : step.torn && few && step.width > widths_.Usual()  ? Rank::kWide
           : !step.torn && StandsOut(step, widths_.Usual())    ? Rank::kAligned
           : step.torn && few && step.width > widths_.Common() ? Rank::kPossible
                                                               : Rank::kNone;
}

RoundDetector::Seam RoundDetector::BestBefore(std::uint64_t end) const {
    const Step* best = nullptr;
    Rank rank = Rank::kNone;
    ForEachPlace([&](const Step& step) {
        const Rank ofStep = RankOf(step);
        if (step.offset < end &&
            (ofStep > rank || (best != nullptr && ofStep == rank && step.width > best->width))) {
            best = &step;
            rank = ofStep;
        }
    });
    // A line that was cut inside its counter passes for a whole one, with a step of its own after it.
    for (const Step& step : widest_) {
        if (best != nullptr && rank == Rank::kAligned && step.offset == best->from &&
            RankOf(step) == Rank::kAligned) {
            return {step.offset, rank};
        }
    }
    return {best != nullptr ? best->offset : 0, rank};
}

void RoundDetector::Consider(const LogLine& line, std::uint64_t offset) {
    if (!previous_) {
        return;
    }
    Step step;
    step.width = StepForward(*previous_, line.counter);
    if (step.width > kCounterPeriod - kDisorder) {
        // A small fall is a line that came late, unless its own thread had been further.
        const std::int64_t* const last = lastOfThread_.Find(line.thread);
        const bool possible =
            last == nullptr || StepForward(*last, line.counter) < kCounterPeriod - kDisorder;
        step.width = possible ? 0 : step.width;
    }
    widths_.Add(step.width);
    step.unattached = headerless_ > 0 && headerlessIsUnattached_;
    step.cut = headerless_ > 0 ? headerlessCut_ : HeaderRest::kNone;
    unattached_ += step.unattached ? 1 : 0;
    const bool cut = step.cut != HeaderRest::kNone;
    step.torn = headerless_ == 1 || step.unattached || cut;
    ConsiderDigits(step, *previous_);
    step.offset = headerless_ > 0 ? headerlessOffset_ : offset;
    step.from = previousOffset_;
    step.line = lines_;
    if (step.torn && (torn_.size() < kMostTorn || cut) && torn_.size() < 2 * kMostTorn) {
        torn_.push_back(step);
    }
    if (step.width > widest_[lightest_].width) {
        widest_[lightest_] = step;
        lightest_ = static_cast<std::size_t>(
            std::min_element(widest_.begin(), widest_.end(),
                             [](const Step& x, const Step& y) { return x.width < y.width; }) -
            widest_.begin());
    }
}

/// The line before the step may have been cut inside its counter: such a line passes for a whole one. Then
/// what its counter lacks is a part of the step.
void RoundDetector::ConsiderDigits(const Step& step, std::int64_t counter) {
    std::int64_t digitsCount = 1;
    while (digitsCount <= counter && digitsCount <= step.width) {
        digitsCount *= 10;
    }
    if (step.width >= digitsCount && headerless_ == 0 && withoutDigits_.size() < kMostWithoutDigits) {
        Step place;
        place.width = lastWidth_;
        place.offset = previousOffset_;
        place.digitsCount = digitsCount;
        place.stepWithDigits = step.width % digitsCount;
        withoutDigits_.push_back(place);
    }
    lastWidth_ = step.width;
}

} // namespace NimaPost
