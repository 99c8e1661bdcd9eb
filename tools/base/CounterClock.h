#pragma once

#include "tools/base/ThreadTimes.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>

namespace NimaPost {

constexpr std::int64_t kSecond = 1'000'000'000;
/// The counter is seconds plus nanoseconds: over a whole second it grows by 1 instead of a billion. Elapsed
/// time and counter therefore agree modulo this number, and only modulo it.
constexpr std::int64_t kCounterPeriod = kSecond - 1;

/// The remainder, never negative.
constexpr std::int64_t Modulo(std::int64_t value, std::int64_t modulus) {
    const std::int64_t rest = value % modulus;
    return rest < 0 ? rest + modulus : rest;
}

/// The step from one counter to another, read as forward and less than a period.
constexpr std::int64_t StepForward(std::int64_t from, std::int64_t to) {
    return Modulo(Modulo(to, kCounterPeriod) - Modulo(from, kCounterPeriod), kCounterPeriod);
}

/// The step from one counter to another by the shorter way round.
constexpr std::int64_t NearestStep(std::int64_t from, std::int64_t to) {
    const std::int64_t step = StepForward(from, to);
    return step > kCounterPeriod / 2 ? step - kCounterPeriod : step;
}

/// The step, read as forward unless it is a fall of at most `fall`.
constexpr std::int64_t StepWithFall(std::int64_t from, std::int64_t to, std::int64_t fall) {
    const std::int64_t step = StepForward(from, to);
    return step > kCounterPeriod - fall ? step - kCounterPeriod : step;
}

/// How far apart two lines may be stamped and still have changed places in the file.
constexpr std::int64_t kDisorder = kSecond / 10;
/// The head of a dump is written before the data that is dumped, and the device keeps running meanwhile.
constexpr std::int64_t kDumpTakes = kSecond / 5;

/// How long before a dump's head one of its records was written, at the least; negative if it was written a
/// little after.
constexpr std::int64_t BeforeHead(std::int64_t record, std::int64_t head) {
    return StepWithFall(record, head, kDumpTakes);
}

/// Recovers elapsed time from counters in the order in which they were written, doc/clock.md. Every time is
/// the earliest that the order allows: whole seconds without a record leave no trace in the counter.
class CounterClock {
  public:
    /// How much earlier a stamp may be than one stored before it.
    struct Disorder {
        /// For stamps of other threads: a writer may be delayed between reading the clock and storing.
        std::int64_t acrossThreads = kSecond / 10;
        /// For stamps of one thread. Not zero if threads of several processes may share an identifier.
        std::int64_t withinThread = 0;
    };

    /// No device has more threads. If the input claims to, what is known of each thread is discarded, so that
    /// memory stays bounded.
    static constexpr std::size_t kMostThreads = 1 << 16;

    CounterClock() = default;
    explicit CounterClock(Disorder disorder) : disorder_(disorder) {}

    /// The elapsed nanoseconds of the next stamp, 0 for the first.
    std::int64_t Next(std::int64_t counter, std::optional<std::uint32_t> thread);

    /// The elapsed time of an unreliable stamp: the one nearest to the clock's current time, which does not
    /// change.
    std::int64_t Near(std::int64_t counter) const;

    /// How often no single run of the clock can explain all stamps: the device restarted, or a stamp is
    /// damaged. The clock then continues from its current time.
    std::uint64_t Breaks() const { return breaks_; }

    /// Bounds of the monotonic clock, in whole seconds. A counter is this plus fewer nanoseconds than a
    /// second has, so every stamp gives two. What passed unseen makes the clock later, so that there is a
    /// least value for the last stamp and a most for the first.
    std::int64_t MostFirstSecond() const { return mostFirstSecond_; }
    std::int64_t LeastLastSecond() const { return leastSecond_; }

    /// The identifiers of the threads so far.
    template <class Visitor>
    void ForEachThread(const Visitor& visitor) const {
        lastOfThread_.ForEach([&](std::uint32_t thread, std::int64_t /*last*/) { visitor(thread); });
    }

    /// Whether the last stamp was read as that of a writer that was late. Between two threads a silence of
    /// nearly a second looks the same; the stamp is then a second later.
    bool WasLate() const { return late_; }

    /// By how many seconds the last stamp is earlier, at the most, if its writer was held up for longer than
    /// the disorder that is read as such, or one before it was.
    std::int64_t HeldUp() const { return heldUp_; }
    /// By how many it may be that too many were counted until now for that reason.
    std::int64_t MostOvercounted() const {
        return std::clamp<std::int64_t>((frontier_ - proven_) / kCounterPeriod, 0, kLongestHoldUp);
    }
    /// Seconds. No writer is held up for longer.
    static constexpr std::int64_t kLongestHoldUp = 3;

    bool Started() const { return started_; }
    /// The latest time so far.
    std::int64_t Frontier() const { return frontier_; }
    /// A counter that belongs to the frontier, reduced modulo the period.
    std::int64_t FrontierCounter() const { return base_ + frontier_; }

  private:
    void ProveFor(std::uint32_t thread, std::int64_t counter, std::int64_t elapsed);
    bool FitsOneRun(std::int64_t counter, std::int64_t elapsed);

    Disorder disorder_;
    ThreadTimes lastOfThread_;
    std::int64_t firstCounter_ = 0;
    std::int64_t base_ = 0;
    std::int64_t frontier_ = 0;
    std::int64_t mostFirstSecond_ = 0;
    std::int64_t begun_ = 0;       ///< seconds that have begun since the first stamp, at the least
    std::int64_t leastSecond_ = 0; ///< of the clock, when the last of them began
    std::uint64_t breaks_ = 0;
    // Elapsed time that has certainly passed, when each thread stored its last stamp and now.
    ThreadTimes provenWhenStored_;
    std::int64_t proven_ = 0;
    std::int64_t heldUp_ = 0;
    bool started_ = false;
    bool late_ = false;
};

} // namespace NimaPost
