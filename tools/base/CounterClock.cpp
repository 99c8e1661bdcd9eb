#include "tools/base/CounterClock.h"

#include <algorithm>

namespace NimaPost {

namespace {

/// No device runs for 30,000 years, and sums of plausible times are far from overflowing.
bool IsPlausible(std::int64_t counter) {
    return counter >= 0 && counter < (std::int64_t{1} << 40);
}

} // namespace

std::int64_t CounterClock::Next(std::int64_t counter, std::optional<std::uint32_t> thread) {
    if (!started_) {
        started_ = true;
        base_ = Modulo(counter, kCounterPeriod);
        firstCounter_ = IsPlausible(counter) ? counter : base_;
        leastSecond_ = firstCounter_ - kCounterPeriod;
        mostFirstSecond_ = firstCounter_;
        if (thread) {
            lastOfThread_.TryEmplace(*thread, 0);
            provenWhenStored_.TryEmplace(*thread, 0);
        }
        return 0;
    }
    std::int64_t floor = frontier_ - disorder_.acrossThreads;
    std::int64_t* last = nullptr;
    if (thread) {
        if (lastOfThread_.size() >= kMostThreads) {
            lastOfThread_.clear();
        }
        // A thread's own stamps are in order, which distinguishes a late writer from a second that has
        // passed.
        const auto [found, fresh] = lastOfThread_.TryEmplace(*thread, floor);
        last = &found;
        if (!fresh) {
            floor = std::max(floor, *last - disorder_.withinThread);
        }
    }
    const std::int64_t elapsed =
        floor + Modulo(Modulo(counter, kCounterPeriod) - base_ - floor, kCounterPeriod);
    if (!FitsOneRun(counter, elapsed)) {
        ++breaks_;
    }
    late_ = elapsed < frontier_;
    if (thread) {
        ProveFor(*thread, counter, elapsed);
    }
    frontier_ = std::max(frontier_, elapsed);
    if (last != nullptr) {
        *last = std::max(*last, elapsed);
    }
    return elapsed;
}

/// A thread stamps something only after it has stored what it stamped before, and so after everything that
/// was stored until then. Nothing tells how long one waited that stores for the first time.
void CounterClock::ProveFor(std::uint32_t thread, std::int64_t counter, std::int64_t elapsed) {
    if (provenWhenStored_.size() >= kMostThreads) {
        provenWhenStored_.clear();
    }
    std::int64_t& least = provenWhenStored_.TryEmplace(thread, -kCounterPeriod).first;
    const std::int64_t proven =
        least + Modulo(Modulo(counter, kCounterPeriod) - base_ - least, kCounterPeriod);
    heldUp_ = std::clamp<std::int64_t>((elapsed - proven) / kCounterPeriod, 0, kLongestHoldUp);
    proven_ = std::max(proven_, proven);
    least = proven_;
}

std::int64_t CounterClock::Near(std::int64_t counter) const {
    const std::int64_t ahead = Modulo(Modulo(counter, kCounterPeriod) - base_ - frontier_, kCounterPeriod);
    return frontier_ + (ahead > kCounterPeriod / 2 ? ahead - kCounterPeriod : ahead);
}

bool CounterClock::FitsOneRun(std::int64_t counter, std::int64_t elapsed) {
    if (!IsPlausible(counter)) {
        return false;
    }
    // Elapsed time is the difference of the counters plus a period for each second that has begun, so the
    // number of seconds is known, but for those that passed unseen. Since a second has fewer than a billion
    // nanoseconds, every stamp bounds the second in which it was taken.
    const std::int64_t begun = (elapsed - counter + firstCounter_) / kCounterPeriod;
    const std::int64_t least = leastSecond_ + begun - begun_;
    const bool fits = counter >= least;
    const std::int64_t ofStamp = counter - kCounterPeriod;
    if (begun >= begun_) {
        leastSecond_ = fits ? std::max(least, ofStamp) : ofStamp;
        begun_ = begun;
    } else {
        leastSecond_ = std::max(leastSecond_, ofStamp + begun_ - begun);
    }
    mostFirstSecond_ = std::min(mostFirstSecond_, counter - begun);
    return fits;
}

} // namespace NimaPost
