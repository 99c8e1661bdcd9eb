#include "tools/log/TimePlacer.h"

#include "tools/base/CounterClock.h"

#include <algorithm>

namespace NimaPost {

namespace {

/// Whether a line was the one that filled a log, which then rolled and wrote a calibration line.
bool Fills(const std::optional<LineStamp>& line, const LineStamp& calibration, std::int64_t within) {
    const std::int64_t step =
        line && line->thread == calibration.thread ? StepForward(line->counter, calibration.counter) : 0;
    return step > 0 && step < within;
}

/// A calibration line at a file's start was written when the log went on there if the line that filled the
/// log follows it, or was the last one before it.
bool FollowsItsFiller(const LogPart& before, const LogPart& part) {
    return Fills(part.second, *part.calibration, kSlowRollTakes) ||
           Fills(before.last, *part.calibration, kUnbufferedRollTakes);
}

/// When a log rolls into a backup, the line that filled it is the backup's last, and none follows later than
/// its successor's calibration line.
bool FollowsTheBackup(const LogPart& before, const LogPart& part, std::int64_t within) {
    return Fills(before.last, *part.calibration, within) &&
           !Fills(part.second, *part.calibration, kRollTakes);
}

bool ShareAThread(const LogPart& a, const LogPart& b) {
    return std::any_of(a.threads.begin(), a.threads.end(),
                       [&](std::uint32_t thread) { return b.HasThread(thread); });
}

/// Whether a backup is at least as long as the file after it, as one is that was rolled when it was full.
bool IsAsLong(const LogPart& backup, std::span<const LogPart> fromHereOn) {
    return std::all_of(fromHereOn.begin(), fromHereOn.end(), [&](const LogPart& part) {
        return part.file != fromHereOn.front().file || part.end <= backup.end;
    });
}

/// Whether the device had run for less time in a part than in the one before it.
bool IsOfAnotherBoot(const LogPart& before, const LogPart& part) {
    return before.BoundsUptime() && part.BoundsUptime() && part.mostFirstSecond < before.leastLastSecond;
}

/// Whether a thread of a part writes again in the same file before another process opens it.
bool GoesOn(const LogPart& before, std::span<const LogPart> after) {
    for (const LogPart& part : after) {
        if (part.file != before.file || (part.begin > 0 && part.calibration)) {
            return false;
        }
        if (ShareAThread(before, part)) {
            return true;
        }
    }
    return false;
}

} // namespace

std::int64_t OriginOf(const LogRun& run) {
    return run.wall ? run.wall->Earliest() : 0;
}

void TimePlacer::Place(std::vector<LogPart>& parts) {
    before_ = dated_ = nullptr;
    waiting_.clear();
    for (std::size_t i = 0; i < parts.size(); ++i) {
        LogPart& part = parts[i];
        part.link = LinkOf(part, std::span(parts).subspan(i));
        if (part.hidesSeam || part.mayBeOlder || part.mayBeQuote) {
            part.certainty = Certainty::Assumed();
        }
        part.certainty.premise =
            part.mayHideOlder ? Certainty::Premise::kRoundsAsFound : Certainty::Premise::kClockNotSet;
        if (part.date) {
            PlaceDated(part);
            part.certainty.earlier =
                part.doubtful && !part.hidesSeam && !part.mayBeQuote ? 1 : part.certainty.earlier;
            HangBefore(part);
            dated_ = &part;
        } else if (part.calibration && dated_ != nullptr) {
            HangAfter(part);
        } else {
            waiting_.push_back(&part);
        }
        before_ = &part;
    }
    for (LogPart* part : waiting_) {
        dated_ != nullptr ? HangAfter(*part) : BeginRun(*part);
    }
}

PartLink TimePlacer::LinkOf(const LogPart& part, std::span<const LogPart> fromHereOn) const {
    if (before_ == nullptr || (part.calibration && (part.begin > 0 || IsOfAnotherBoot(*before_, part)))) {
        return PartLink::kOpening;
    }
    if (before_->file != part.file) {
        return part.calibration && IsRolled(part, fromHereOn) ? PartLink::kRolled : PartLink::kOpening;
    }
    if (!part.calibration) {
        // Rounds of which the beginnings were overwritten. What is left of one may show few of the threads.
        return GoesOn(*before_, fromHereOn) ? PartLink::kContinues : PartLink::kOpening;
    }
    // Opened at its full end and gone on at its start with the first line, or after it where there is no
    // buffer, all by one process.
    const bool opened = before_->date && before_->stamped <= 2 && FitsClosely(part);
    return opened || FollowsItsFiller(*before_, part) ? PartLink::kContinues : PartLink::kOpening;
}

/// A roll into a backup leaves no line of its own.
bool TimePlacer::IsRolled(const LogPart& part, std::span<const LogPart> fromHereOn) const {
    const bool mayFollow = IsAsLong(*before_, fromHereOn) && FollowsTheBackup(*before_, part, kSlowRollTakes);
    if (part.date && BeganWithTheDevice(*part.date, part.calibration->counter)) {
        // The dates of any boot fit, but hardly ever at once after the backup's last line.
        return FollowsTheBackup(*before_, part, kRollTakes) || (mayFollow && FitsAtOnce(part));
    }
    return mayFollow || (ShareAThread(*before_, part) && FitsClosely(part));
}

std::int64_t TimePlacer::StartAfter(const LogPart& part) const {
    return dated_->start + dated_->length + StepWithFall(dated_->lastCounter, part.firstCounter, kDisorder);
}

bool TimePlacer::FitsClosely(const LogPart& part) const {
    return FitOf(part).misfit <= kFitsClosely;
}

/// So it does, with no second between that the counters do not show.
bool TimePlacer::FitsAtOnce(const LogPart& part) const {
    return FitsClosely(part) && FitOf(part).unseen == 0;
}

WallOffset::Fit TimePlacer::FitOf(const LogPart& part) const {
    return part.date && dated_ != nullptr && dated_ == before_
               ? runs_[dated_->run].wall->Compare(*part.date, StartAfter(part))
               : WallOffset::Fit{0, INT64_MAX};
}

void TimePlacer::PlaceDated(LogPart& part) {
    if (part.link == PartLink::kOpening || dated_ == nullptr || dated_ != before_ || dated_->hidesSeam ||
        dated_->mayBeQuote) {
        BeginRun(part, LogRun{WallOffset(*part.date, 0)});
        return;
    }
    part.start = StartAfter(part);
    WallOffset& wall = *runs_[dated_->run].wall;
    if (const auto unseen = wall.Join(*part.date, part.start, kFitsClosely)) {
        part.run = dated_->run;
        part.start += *unseen * kCounterPeriod;
        dated_->certainty.later = *unseen;
        dated_->certainty.premise = Certainty::Premise::kNothing;
        dated_->TakeAsItStands();
        return;
    }
    // A date that misses by a little was read late, or is one in four of those of a clock that was set.
    const WallOffset::Fit fit = wall.Compare(*part.date, part.start);
    const std::size_t oldRun = dated_->run;
    BeginRun(part, LogRun{WallOffset(*part.date, 0)});
    if (!dated_->doubtful && (fit.misfit > kDateTakes || fit.unseen < 0)) {
        // A line that stands after the calibration line and was stamped just before it was its process's own.
        part.mayBeRestart = !Fills(part.second, *part.calibration, kRollTakes);
        settings_.push_back({oldRun, dated_->start, part.run, part.mayBeRestart});
        dated_->certainty = Certainty::Assumed();
    }
}

/// Counts the times of parts back from the dated one that they stand before.
void TimePlacer::HangBefore(LogPart& dated) {
    const LogPart* next = &dated;
    bool sameProcess = true;
    for (; !waiting_.empty(); waiting_.pop_back()) {
        LogPart& part = *waiting_.back();
        sameProcess = sameProcess && next->link != PartLink::kOpening;
        part.run = next->run;
        part.start =
            next->start - StepWithFall(part.lastCounter, next->firstCounter, kDisorder) - part.length;
        part.certainty = Certainty{Certainty::kUnbounded, Certainty::kUnbounded, !sameProcess};
        if (sameProcess && !dated.hidesSeam && !dated.mayBeQuote) {
            part.notAfter = dated.start;
            part.certainty.premise = Certainty::Premise::kRoundsAsFound;
        }
        next = &part;
    }
}

void TimePlacer::HangAfter(LogPart& part) {
    part.run = dated_->run;
    part.start = StartAfter(part);
    part.certainty = Certainty::Assumed();
}

void TimePlacer::BeginRun(LogPart& part, LogRun run) {
    part.start = 0;
    part.run = runs_.size();
    runs_.push_back(std::move(run));
}

} // namespace NimaPost
