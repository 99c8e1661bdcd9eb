#include "tests/simulator/Process.h"

#include <utility>

namespace Simulator {

Process::Process(World& world) : world_(world), number_(++world.processes) {
    // Identifiers are addresses of stacks, one below the other.
    constexpr std::uint32_t kStack = 0x801000;
    const std::uint32_t top = world.random.Word() & 0xFFFFF000U;
    const int count = world.random.Small(1, 6);
    for (int i = 0; i < count; ++i) {
        threads_.push_back(top + 0x6C0 - static_cast<std::uint32_t>(i) * kStack);
    }
    writers_ = threads_;
    if (count > 1 && world.random.OneIn(3)) {
        writers_.erase(writers_.begin());
    }
}

Process::Process(World& world, const Process& like)
    : world_(world), number_(++world.processes), threads_(like.threads_), writers_(like.writers_) {}

void Process::Writes(const Output& output, int share) {
    outputs_.insert(outputs_.end(), static_cast<std::size_t>(share), output);
}

void Process::Act() {
    Random& random = world_.random;
    const std::uint32_t thread =
        writers_[static_cast<std::size_t>(random.Below(static_cast<std::int64_t>(writers_.size())))];
    if (!waiting_.contains(thread)) {
        outputs_[static_cast<std::size_t>(random.Below(static_cast<std::int64_t>(outputs_.size())))](thread);
    }
}

void Process::Delayed(std::int64_t delay, std::uint32_t thread, std::function<void()> store) {
    if (delay == 0) {
        store();
        return;
    }
    waiting_.insert(thread);
    world_.device.After(delay, number_, [this, thread, store = std::move(store)] {
        waiting_.erase(thread);
        store();
    });
}

Pace Pace::Any(Random& random) {
    return {random.OneOf({60 * kMicrosecond, kMillisecond, 25 * kMillisecond}), random.Small(1, 60),
            random.OneOf({100 * kMillisecond, 850 * kMillisecond, 3 * kSecond}),
            random.OneOf({6, 40, 1'000'000}), random.OneOf({4 * kSecond, 2 * kMinute, 5 * kHour})};
}

Pace Pace::Busy(Random& random) {
    return {random.OneOf({60 * kMicrosecond, kMillisecond}), random.Small(10, 60), 300 * kMillisecond,
            1'000'000'000, kSecond};
}

void Work(World& world, const std::vector<Process*>& processes, const Pace& pace, int writes) {
    Random& random = world.random;
    for (int burst = 0; writes > 0; --burst) {
        if (burst == 0) {
            const std::int64_t most = random.OneIn(pace.silenceIn) ? pace.silence : pace.pause;
            world.device.Pass(random.Between(1, most));
            burst = random.Small(1, pace.burst);
        }
        world.device.Pass(random.Between(500, pace.gap));
        processes[static_cast<std::size_t>(random.Below(static_cast<std::int64_t>(processes.size())))]->Act();
        --writes;
    }
}

} // namespace Simulator
