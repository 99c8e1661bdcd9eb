#include "tools/axis/Axis.h"

#include "tools/base/CounterClock.h"

#include <algorithm>
#include <utility>

namespace NimaPost {

namespace {

/// Beyond this one clock in thirty fits by chance.
constexpr std::int64_t kHeadMostlyTakes = 1'000'000;

/// Whether it may have run at some moment of this time.
bool MayHaveRun(const LogClock& clock, std::int64_t from, std::int64_t until) {
    const bool ended = clock.nextOpening && *clock.nextOpening >= clock.first;
    return until > clock.first && !(ended && from > *clock.nextOpening);
}

/// The moment on the clock of a process, if that explains the date.
std::optional<Tie> TieOn(const LogClock& clock, std::int64_t counter, const RawDate& date,
                         std::int64_t tolerance) {
    const std::int64_t step = StepForward(clock.counter, counter);
    WallOffset narrowed = clock.wall;
    const auto unseen = narrowed.Join(date, step, tolerance);
    if (!unseen) {
        return std::nullopt;
    }
    // Where the lines of the process are shown, so that all of them may be later alike. A head that was dated
    // sooner after its stamp than they were leaves microseconds less than nothing.
    const std::int64_t elapsed = step + *unseen * kCounterPeriod;
    const std::int64_t later = narrowed.Earliest() + narrowed.Spread() - clock.wall.Earliest();
    return Tie{counter, clock.wall.Earliest() + elapsed, TieKind::kHead, std::max<std::int64_t>(later, 0),
               clock.process};
}

} // namespace

Tie Axis::TieByDate(const Head& head) {
    return {head.counter, head.date.Earliest(), TieKind::kHead, head.date.Spread()};
}

Tie Axis::TieOf(const Head& head) const {
    const RawDate& date = head.date;
    const auto owner = head.thread ? processes_.WithAnyOf({*head.thread}, head.bootCycle) : std::nullopt;
    Tie byDate = TieByDate(head);
    std::optional<Tie> found;
    for (const LogClock& clock : logClocks_) {
        if ((owner && clock.process != *owner) ||
            processes_.IsOfAnotherCycle(clock.process, head.bootCycle)) {
            continue;
        }
        byDate.notOf = owner;
        if (!MayHaveRun(clock, date.second * kSecond, (date.second + 1) * kSecond)) {
            continue;
        }
        auto tie = TieOn(clock, head.counter, date, kFitsClosely);
        const bool close = tie.has_value();
        tie = close || !owner ? tie : TieOn(clock, head.counter, date, kHeadTakes);
        if (tie && found && processes_[clock.process].boot != processes_[*found->process].boot) {
            return byDate; // Of either.
        }
        if (tie) {
            found = tie;
            found->fitsClosely = close;
            // Without a thread of the process a close fit may be chance, so that nothing is exact.
            const bool fits = close ? owner || tie->later > 0
                                    : TieOn(clock, head.counter, date, kHeadMostlyTakes).has_value();
            found->within = fits ? 0 : 1;
        }
    }
    if (found) {
        found->onlyWriter = OnlyWriterAt(*found, head.thread);
    }
    return found.value_or(byDate);
}

std::optional<std::size_t> Axis::OnlyWriterAt(const Tie& tie, std::optional<std::uint32_t> thread) const {
    std::optional<std::size_t> only;
    for (const LogClock& clock : logClocks_) {
        const ProcessFacts& facts = processes_[clock.process];
        const bool differs =
            facts.boot != processes_[*tie.process].boot || (thread && !facts.threads.contains(*thread));
        if (differs || !MayHaveRun(clock, tie.time, tie.time + tie.later + 1) || clock.process == only) {
            continue;
        }
        if (only) {
            return std::nullopt;
        }
        only = clock.process;
    }
    return only;
}

void Axis::SetCollection(Collection collection) {
    collection_ = std::move(collection);
    newest_ = Tie{collection_->moment.counter, collection_->moment.local, TieKind::kCollected};
    hasWall_ = true;
}

std::optional<Tie> Axis::TieOfFile(std::size_t file) const {
    const bool mapped = collection_ && collection_->mapped.contains(file);
    return mapped ? Tie{collection_->moment.counter, collection_->moment.local, TieKind::kCollected}
                  : newest_;
}

std::optional<std::int64_t> Axis::CallOf(std::uint32_t eventType, std::uint32_t eventId) const {
    std::optional<std::int64_t> time;
    for (const CallbackMark& mark : callbacks_) {
        if (mark.eventType == eventType && mark.eventId == eventId) {
            if (time) {
                return std::nullopt;
            }
            time = mark.time;
        }
    }
    return time;
}

} // namespace NimaPost
