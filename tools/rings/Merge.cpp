#include "tools/rings/Merge.h"

#include "tools/base/CounterClock.h"

#include <algorithm>

namespace NimaPost {

namespace {

/// The newest counter of all, just before which every other ring's newest counter lies. Counters agree with
/// time only modulo a second, so the newest comes before the widest gap on that circle.
std::int64_t NewestCounter(const RingSet& set) {
    std::vector<std::int64_t> phases;
    for (const Ring& ring : set.rings) {
        if (!ring.records.empty()) {
            phases.push_back(Modulo(ring.records.back().data.timestamp, kCounterPeriod));
        }
    }
    std::sort(phases.begin(), phases.end());
    std::int64_t widest = -1;
    std::int64_t newest = phases.empty() ? 0 : phases.back();
    for (std::size_t i = 0; i < phases.size(); ++i) {
        const std::int64_t gap = Modulo(phases[(i + 1) % phases.size()] - phases[i], kCounterPeriod);
        if (gap > widest) {
            widest = gap;
            newest = phases[i];
        }
    }
    return newest;
}

} // namespace

std::vector<MergedRecord> MergeRings(const RingSet& set) {
    const std::int64_t newest = set.ticks ? *set.ticks : NewestCounter(set);
    std::vector<MergedRecord> merged;
    for (const Ring& ring : set.rings) {
        if (ring.records.empty()) {
            continue;
        }
        const RingRecord& last = ring.records.back();
        const std::int64_t behind =
            set.ticks ? BeforeHead(last.data.timestamp, newest) : StepForward(last.data.timestamp, newest);
        for (const RingRecord& record : ring.records) {
            merged.push_back({record.elapsed - last.elapsed - behind, &ring, &record});
        }
    }
    std::stable_sort(merged.begin(), merged.end(),
                     [](const MergedRecord& a, const MergedRecord& b) { return a.time < b.time; });
    return merged;
}

} // namespace NimaPost
