#include "tools/rings/Seam.h"

#include "tools/base/CounterClock.h"

#include <algorithm>
#include <unordered_map>
#include <vector>

namespace NimaPost {

namespace {

/// A step counts as distinct if it is this many times wider than the next.
constexpr std::int64_t kStandsOut = 8;

std::int64_t StepBetween(const RingRecord& a, const RingRecord& b) {
    return StepForward(a.data.timestamp, b.data.timestamp);
}

/// Threads of one process are closer together than this in its address space, and so are their identifiers.
constexpr std::uint32_t kOneProcess = 1U << 29;

/// The places that no thread writes on both sides of: perhaps another process took the ring over there and
/// restarted at slot 0.
std::vector<std::size_t> ChangesOfThreads(const std::vector<RingRecord>& records) {
    std::unordered_map<std::uint32_t, std::size_t> last;
    for (std::size_t i = 0; i < records.size(); ++i) {
        last[records[i].data.threadId] = i;
    }
    std::size_t reach = 0;
    std::vector<std::size_t> places;
    for (std::size_t i = 0; i + 1 < records.size(); ++i) {
        reach = std::max(reach, last[records[i].data.threadId]);
        if (reach == i) {
            places.push_back(i + 1);
        }
    }
    return places;
}

bool AreOfOneProcess(const RingRecord& a, const RingRecord& b) {
    const std::uint32_t apart = a.data.threadId - b.data.threadId;
    return std::min(apart, 0 - apart) < kOneProcess;
}

/// How long before the head of a dump the record before a place was written, at the least.
std::int64_t NewestBeforeHead(const std::vector<RingRecord>& records, std::size_t place, std::int64_t ticks) {
    const RingRecord& newest = records[(place + records.size() - 1) % records.size()];
    return std::max<std::int64_t>(BeforeHead(newest.data.timestamp, ticks), 0);
}

/// The step from newest to oldest leads back in time, so nothing ties it to the other steps: in a busy ring
/// it is by far the widest when read as a step forward.
std::size_t WidestStep(const std::vector<RingRecord>& records, bool& standsOut) {
    std::size_t place = 0;
    std::int64_t widest = -1;
    std::int64_t second = -1;
    for (std::size_t i = 0; i < records.size(); ++i) {
        const std::size_t next = (i + 1) % records.size();
        const std::int64_t step = StepBetween(records[i], records[next]);
        if (step > widest) {
            second = widest;
            widest = step;
            place = next;
        } else {
            second = std::max(second, step);
        }
    }
    standsOut = widest > kStandsOut * std::max<std::int64_t>(second, 1);
    return place;
}

/// Turns slot order into time order. `full`: every slot of the ring has been written at some time. `ticks`:
/// when the dump that contains the ring was begun.
void FindSeam(Ring& ring, bool full, std::optional<std::int64_t> ticks) {
    auto& records = ring.records;
    if (records.size() < 2) {
        return;
    }
    bool standsOut = false;
    std::size_t place = full ? WidestStep(records, standsOut) : 0;
    ring.seam = !full ? Seam::kNone : standsOut ? Seam::kLikely : Seam::kUncertain;
    const auto changes = standsOut ? std::vector<std::size_t>() : ChangesOfThreads(records);
    if (ticks) {
        for (const std::size_t change : changes) {
            if (NewestBeforeHead(records, change, *ticks) < NewestBeforeHead(records, place, *ticks)) {
                place = change;
                ring.seam = Seam::kLikely;
            }
        }
    } else if (!changes.empty()) {
        ring.seam = Seam::kUncertain;
        const auto farApart = std::find_if(changes.begin(), changes.end(), [&](std::size_t change) {
            return !AreOfOneProcess(records[change - 1], records[change]);
        });
        place = farApart != changes.end() ? *farApart : full && changes.size() == 1 ? changes.front() : place;
    }
    std::rotate(records.begin(), records.begin() + static_cast<std::ptrdiff_t>(place), records.end());
}

void RecoverTimes(Ring& ring) {
    CounterClock clock;
    for (RingRecord& record : ring.records) {
        record.elapsed = clock.Next(record.data.timestamp, record.data.threadId);
    }
    ring.clockBreaks = clock.Breaks();
}

} // namespace

void OrderRing(Ring& ring, bool full, std::optional<std::int64_t> ticks) {
    FindSeam(ring, full, ticks);
    RecoverTimes(ring);
}

} // namespace NimaPost
