#include "tools/log/RoundSorter.h"

#include "tools/base/CounterClock.h"
#include "tools/log/PartDivider.h"

#include <algorithm>

namespace NimaPost {

namespace {

/// Counters below it have fewer digits than others.
constexpr std::int64_t kUsualCounter = kSecond / 10;
/// A process that opens a full log goes on at its start after fewer lines.
constexpr std::uint64_t kLinesAtOnce = 4;

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

bool Fit(const LogPart& a, const LogPart& b) {
    return a.date && b.date &&
           WallOffset(*a.date, 0).Compare(*b.date, StepForward(a.firstCounter, b.firstCounter)).misfit <=
               kFitsClosely;
}

} // namespace

RoundSorter::RoundSorter(const InputFile& file, const std::vector<Quote>& quotes, const Rounds& rounds)
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

void RoundSorter::Add(std::vector<LogPart> round) {
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

/// Openings after the newest round, which went on at the end, since the maximum had grown: their dates
/// are later, and the newest round is on one clock with them or with an opening before them, or it is by
/// threads of older rounds.
std::vector<LogPart> RoundSorter::TakeLater() {
    std::vector<LogPart> later;
    const LogPart& first = newest_.front();
    for (; !sorted_.empty(); sorted_.pop_back()) {
        const LogPart& opening = sorted_.back();
        const bool isLater = first.date && opening.date && opening.date->second > first.date->second;
        if (!isLater || opening.stamped < kLinesAtOnce) {
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

/// A round may have ended inside the counter of an opening, which then has fewer digits than nine in ten
/// have and does not fit the clock of the process that went on.
bool RoundSorter::MayBeCut(const LogPart& opening) const {
    return opening.date && opening.firstCounter < kUsualCounter &&
           !(newest_.size() == 1 && Fit(opening, newest_.front()));
}

/// Whether a round may be by the process that wrote an opening.
bool RoundSorter::IsOf(const std::vector<LogPart>& round, std::size_t opening) const {
    return AnyHasThread(round, openings_[opening].calibration->thread) ||
           (opening + 1 == openings_.size() && ShareAThread(round, newest_));
}

void RoundSorter::Move(std::size_t openings) {
    for (; moved_ < openings; ++moved_) {
        openings_[moved_].overwritten = true;
        sorted_.push_back(openings_[moved_]);
    }
}

void RoundSorter::Append(const std::vector<LogPart>& round, bool overwritten) {
    for (const LogPart& part : round) {
        sorted_.push_back(part);
        sorted_.back().overwritten = overwritten;
    }
}

} // namespace NimaPost
