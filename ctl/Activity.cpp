#include "ctl/Activity.h"

#include "ctl/block/ClaimCounter.h"
#include "tools/words/SetAside.h"

#include <algorithm>
#include <span>
#include <thread>
#include <unordered_map>

namespace NimaCtl {

namespace {

/// The most entries that are looked at, 512 KB.
constexpr std::uint32_t kMostLooked = 1 << 16;
constexpr std::chrono::milliseconds kLook{100};

std::uint64_t CountRecords(std::span<const SysTraceEntry> entries) {
    return static_cast<std::uint64_t>(std::count_if(entries.begin(), entries.end(), [](const auto& entry) {
        return (entry.id & SYSTRACE_CONTINUATION) == 0 && (entry.id != 0 || entry.value != 0);
    }));
}

/// A record ends in its writer's thread: what is stored last before the next record of its event begins.
void CountWriters(std::span<const SysTraceEntry> entries, Activity& activity) {
    std::unordered_map<std::uint32_t, std::uint32_t> lastOfEvent;
    const auto end = [&](std::uint32_t thread) {
        ++activity.writers[thread];
        ++activity.lastRecords;
    };
    for (const SysTraceEntry& entry : entries) {
        const std::uint32_t event = entry.id & ~SYSTRACE_CONTINUATION;
        if ((entry.id & SYSTRACE_CONTINUATION) != 0) {
            lastOfEvent[event] = entry.value;
        } else if (const auto last = lastOfEvent.extract(event)) {
            end(last.mapped());
        }
    }
    for (const auto& [event, thread] : lastOfEvent) {
        end(thread);
    }
}

} // namespace

Activity Watch(const TraceBlock& block, std::chrono::nanoseconds time) {
    using Clock = std::chrono::steady_clock;
    Activity activity;
    const auto begin = Clock::now();
    ClaimCounter claims(block);
    for (Clock::duration passed{}; passed < time; passed = Clock::now() - begin) {
        std::this_thread::sleep_for(std::min<Clock::duration>(kLook, time - passed));
        claims.Look();
    }
    activity.seconds = std::chrono::duration<double>(Clock::now() - begin).count();

    const SysTraceHeader after = block.CopyHeader();
    const std::uint32_t used = std::min(UsedEntries(after), kMostLooked);
    const auto last = block.CopyEntries(after.writeIndex + 1 - used, used);
    activity.cleared = claims.Cleared();
    activity.sinceDumpBegan = NimaPost::EntriesSinceDumpBegan(last);
    if (!activity.cleared) {
        activity.entries = claims.Claimed();
        const auto counted = static_cast<std::size_t>(std::min<std::uint64_t>(activity.entries, used));
        activity.records = static_cast<double>(CountRecords(std::span(last).last(counted)));
        activity.estimated = counted < activity.entries;
        if (activity.estimated && counted > 0) {
            activity.records *= static_cast<double>(activity.entries) / static_cast<double>(counted);
        }
    }
    if ((after.flags & SYSTRACE_FLAG_THREAD_RECORDS) != 0) {
        CountWriters(last, activity);
    }
    return activity;
}

} // namespace NimaCtl
