#include "tools/log/FollowClock.h"

#include "tools/base/CounterClock.h"
#include "tools/base/InputFile.h"
#include "tools/base/Text.h"
#include "tools/log/LogSet.h"

#include <algorithm>

namespace NimaPost {

namespace {

/// So many openings are known again, so that memory stays bounded.
constexpr std::size_t kMostOpenings = 1 << 14;

bool EndsAsADeviceDoes(std::string_view firstLine) {
    return firstLine.ends_with("\r\n") && IsCalibration(ParseLogHeader(firstLine));
}

} // namespace

FollowClock::FollowClock(const std::string& path, std::uint64_t from) {
    LogSet logs;
    std::string problem;
    auto file = InputFile::Open(path, problem);
    if (!file || !logs.Take(*file)) {
        return;
    }
    logs.Arrange();
    if (const auto anchor = logs.LastAnchor()) {
        const auto& threads = logs.Processes()[anchor->process].threads;
        state_.wall = logs.Runs()[anchor->run].wall;
        state_.elapsed = anchor->wall - state_.wall->Earliest();
        state_.counter = anchor->counter;
        state_.threads.assign(threads.begin(), threads.end());
    }
    logs.ForEachPart([&](const LogPart& part) {
        if (part.calibration && part.begin < from && openings_.size() < kMostOpenings) {
            openings_.emplace(part.calibration->counter, part.calibration->thread);
        }
    });
    const std::string front = logs.Sources().front().file.ReadAll(kFrontBytes);
    deviceEnds_ = EndsAsADeviceDoes(std::string_view(front).substr(0, front.find('\n') + 1));
}

void FollowClock::Place(LogEntry& entry, const FollowedLine& line, std::int64_t now) {
    if (doubt_) {
        Settle(line);
    }
    if (line.offset == 0) {
        doubt_.reset();
        textEnd_ = 0;
        deviceEnds_ = EndsAsADeviceDoes(line.text);
    }
    const auto date = line.offset < textEnd_ ? std::nullopt : CalibrationDate(entry.line);
    if (line.offset < textEnd_ || (date && IsText(line, entry.line, *date, now))) {
        entry.line = LogLine();
        entry.line.message = entry.text;
        entry.continued = true;
    } else if (date) {
        Open(entry.line, *date);
    }
    entry.certainty = Certainty::Assumed();
    if (!state_.wall) {
        return;
    }
    entry.hasTime = true;
    entry.hasWall = true;
    if (!doubt_) {
        entry.certainty = {0, 0, false};
    }
    entry.certainty.originLater = state_.wall->Spread();
    if (entry.line.stamped && !date && !(doubt_ && doubt_->isText)) {
        Advance(entry, now);
    }
    entry.time = state_.Time();
}

/// Looks again at a calibration line in doubt with one more line after it.
void FollowClock::Settle(const FollowedLine& line) {
    Doubt& doubt = *doubt_;
    const bool isNext = line.offset == doubt.offset + doubt.line.size() + doubt.following.size();
    if (!isNext || doubt.following.size() >= kQuoteLookAhead) {
        return;
    }
    doubt.following += line.text;
    const auto quote = JudgeQuote({doubt.offset, doubt.line, 0, 0, true, doubt.following},
                                  Before(doubt.before), doubt.isText);
    const bool isFull = doubt.following.size() >= kQuoteLookAhead;
    if (quote && quote->proven) {
        textEnd_ = quote->end;
        state_ = doubt.before;
        doubt.isText = true;
    }
    if (quote ? quote->proven && (quote->ended || isFull) : isFull) {
        doubt_.reset();
    }
}

/// Whether a calibration line stands in a message. Where that, or the message's end, cannot be told yet, what
/// follows is in doubt.
bool FollowClock::IsText(const FollowedLine& line, const LogLine& calibration, const RawDate& date,
                         std::int64_t now) {
    const bool repeats = openings_.contains({calibration.counter, calibration.thread});
    if (openings_.size() < kMostOpenings) {
        openings_.emplace(calibration.counter, calibration.thread);
    }
    if (line.offset == 0) {
        return false;
    }
    const bool isProven =
        repeats || (deviceEnds_ && !line.text.ends_with("\r\n")) || IsOfAnotherTime(date, now);
    const std::string_view following = line.following.substr(0, line.following.rfind('\n') + 1);
    const auto quote = JudgeQuote({line.offset, line.text, 0, 0, true, following}, Before(state_), isProven);
    const bool isText = quote && quote->proven;
    textEnd_ = isText ? quote->end : textEnd_;
    doubt_.reset();
    if (quote ? !quote->ended || !isText : following.size() < kQuoteLookAhead) {
        doubt_ = Doubt{std::string(line.text), line.offset, std::string(following), state_, isText};
    }
    return isText;
}

/// What has just been written is neither older than the line before nor in the future, unless the clock was
/// set back since.
bool FollowClock::IsOfAnotherTime(const RawDate& date, std::int64_t now) const {
    return state_.wall && state_.Time() < now + kSecond &&
           ((date.second + 2) * kSecond < state_.Time() || date.second * kSecond > now + kSecond);
}

/// A process that opens the log anew, or a clock that was set, begins another run of times.
void FollowClock::Open(const LogLine& calibration, const RawDate& date) {
    const std::int64_t elapsed = state_.elapsed + StepForward(state_.counter, calibration.counter);
    const auto unseen = state_.wall ? state_.wall->Join(date, elapsed, kFitsClosely) : std::nullopt;
    state_.elapsed = unseen ? elapsed + *unseen * kCounterPeriod : 0;
    state_.counter = calibration.counter;
    if (!unseen) {
        state_.wall = WallOffset(date, 0);
    }
    if (!std::binary_search(state_.threads.begin(), state_.threads.end(), calibration.thread)) {
        state_.threads.clear();
    }
    NoteThread(calibration.thread);
}

void FollowClock::Advance(LogEntry& entry, std::int64_t now) {
    const std::int64_t step = StepWithFall(state_.counter, entry.line.counter, kDisorder);
    const std::int64_t earliest = state_.Time() + step;
    const std::int64_t unseen = std::max<std::int64_t>((now - earliest) / kCounterPeriod, 0);
    state_.elapsed += step + unseen * kCounterPeriod;
    state_.counter = entry.line.counter;
    NoteThread(entry.line.thread);
    if (!doubt_ && (unseen > 0 || earliest > now + kSecond)) {
        entry.certainty.earlier = unseen;
        entry.certainty.assumed = true;
    }
}

void FollowClock::NoteThread(std::uint32_t thread) {
    const auto at = std::lower_bound(state_.threads.begin(), state_.threads.end(), thread);
    if (at == state_.threads.end() || *at != thread) {
        state_.threads.insert(at, thread);
    }
}

LinesBefore FollowClock::Before(const State& state) {
    return {state.threads, state.counter, state.wall ? std::optional(state.Time()) : std::nullopt};
}

} // namespace NimaPost
