#pragma once

#include "tests/simulator/World.h"

#include <functional>
#include <set>
#include <vector>

namespace Simulator {

/// Something that a thread writes.
using Output = std::function<void(std::uint32_t thread)>;

/// A process with its threads and what these write to.
class Process {
  public:
    explicit Process(World& world);
    /// The same thread identifiers as the other: an address space without random places.
    Process(World& world, const Process& like);

    int Number() const { return number_; }
    std::uint32_t MainThread() const { return threads_.front(); }
    /// As often as its share.
    void Writes(const Output& output, int share = 1);

    /// A thread that waits for nothing writes something.
    void Act();
    /// Stamps now and stores later. Until then the thread does nothing else.
    void Delayed(std::int64_t delay, std::uint32_t thread, std::function<void()> store);

    /// Lets its threads finish what they have begun.
    void Settle() { world_.device.Settle(number_); }
    void Kill() { world_.device.Drop(number_); }

  private:
    World& world_;
    int number_;
    std::vector<std::uint32_t> threads_;
    std::vector<std::uint32_t> writers_; ///< often all but the main thread, which then only opens the log
    std::set<std::uint32_t> waiting_;
    std::vector<Output> outputs_;
};

/// How busy processes are: bursts with pauses between them, and now and then a silence of seconds or hours.
struct Pace {
    std::int64_t gap;       ///< at most, within a burst
    int burst;              ///< most of a burst
    std::int64_t pause;     ///< at most, between bursts
    std::int64_t silenceIn; ///< so many pauses, one is a silence
    std::int64_t silence;   ///< at most

    static Pace Any(Random& random);
    /// No pause hides a second.
    static Pace Busy(Random& random);
};

/// Some time in the processes' lives, until they have written so often together.
void Work(World& world, const std::vector<Process*>& processes, const Pace& pace, int writes);

} // namespace Simulator
