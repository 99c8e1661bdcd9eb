#include "tools/log/Rounds.h"

#include "tools/base/CounterClock.h"

#include <algorithm>
#include <bit>

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
/// A step between rounds is any part of a second. One that is to be told from a thread's pause has to be
/// wider than what keeps a thread waiting on a busy device, and by far wider than others.
constexpr std::int64_t kStandsOut = 64;
constexpr std::int64_t kBusyWait = kSecond / 10;

/// Lines without a header beyond these are the way of this log, and no sign of anything.
constexpr std::size_t kMostTorn = 64;

} // namespace

void StepWidths::Add(std::int64_t width) {
    ++counts_[static_cast<std::size_t>(std::bit_width(static_cast<std::uint64_t>(width)))];
    ++sum_;
}

std::int64_t StepWidths::Usual() const {
    std::uint64_t below = 0;
    for (std::size_t bits = 0; bits < counts_.size(); ++bits) {
        below += counts_[bits];
        if (below * 100 >= sum_ * 99) {
            return std::int64_t{1} << bits;
        }
    }
    return kSecond;
}

void RoundDetector::Line(const LogLine& line, std::string_view text, std::uint64_t offset) {
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
    if (!IsCalibration(line)) {
        if (lastOfThread_.size() >= CounterClock::kMostThreads) {
            lastOfThread_.clear();
        }
        lastOfThread_[line.thread] = line.counter;
        last_[lines_++ % last_.size()] = {line.counter, line.thread};
    }
    headerless_ = 0;
}

std::vector<std::uint64_t> RoundDetector::Judge(std::uint64_t size) const {
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

bool RoundDetector::IsProven() const {
    const bool anyCut =
        std::any_of(torn_.begin(), torn_.end(), [](const Step& step) { return step.cutHeader; });
    const bool early = behindFirst_ && *behindFirst_ > 0 && *behindFirst_ < kRollTakes;
    const bool otherSign = (!torn_.empty() && torn_.size() < kMostTorn) ||
                           std::any_of(widest_.begin(), widest_.end(),
                                       [&](const Step& step) { return StandsOut(step, widths_.Usual()); });
    const bool slow = behindFirst_ && *behindFirst_ > 0 && *behindFirst_ < kSlowRollTakes && otherSign;
    return anyCut || dateFellAt_ || early || slow || EndsAtFirst();
}

bool RoundDetector::EndsAtFirst() const {
    return lines_ > last_.size() && std::any_of(last_.begin(), last_.end(), [&](const Stamp& stamp) {
               return stamp.thread == firstThread_ &&
                      StepForward(stamp.counter, *first_) < kUnbufferedRollTakes;
           });
}

bool RoundDetector::StandsOut(const Step& step, std::int64_t usual) {
    return step.width > kStandsOut * usual && step.width > kBusyWait;
}

void RoundDetector::AddAlignedSeams(std::int64_t usual, std::uint64_t size,
                                    std::vector<std::uint64_t>& seams) const {
    const auto isNearEnd = [&](std::uint64_t offset) { return offset + 2 * kRoundsDiffer >= size; };
    const std::uint64_t torn = seams.empty() ? size : seams.front();
    const Step* first = nullptr;
    for (const Step& step : widest_) {
        if (StandsOut(step, usual) && step.offset < torn && (first == nullptr || step.width > first->width)) {
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

const Step* RoundDetector::Best() const {
    const Step* best = nullptr;
    for (const auto* steps : {&torn_, &widest_}) {
        for (const Step& step : *steps) {
            if (step.width >= 0 && (!dateFellAt_ || step.offset <= *dateFellAt_) &&
                (best == nullptr || std::pair(step.torn, step.width) > std::pair(best->torn, best->width))) {
                best = &step;
            }
        }
    }
    return best;
}

void RoundDetector::Consider(const LogLine& line, std::uint64_t offset) {
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
    const auto lightest = std::min_element(widest_.begin(), widest_.end(),
                                           [](const Step& x, const Step& y) { return x.width < y.width; });
    if (step.width > lightest->width) {
        *lightest = step;
    }
}

} // namespace NimaPost
