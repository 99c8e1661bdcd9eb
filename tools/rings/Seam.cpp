#include "tools/rings/Seam.h"

#include "tools/axis/ProcessChange.h"
#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <cstdlib>
#include <string_view>
#include <type_traits>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

namespace NimaPost {

namespace {

/// A step counts as distinct if it is this many times wider than the next.
constexpr std::int64_t kStandsOut = 8;

std::int64_t StepBetween(const RingRecord& a, const RingRecord& b) {
    return StepForward(a.data.timestamp, b.data.timestamp);
}

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

/// Where nothing tells when the ring was read.
std::size_t PlaceBySteps(Ring& ring, bool full) {
    const auto& records = ring.records;
    bool standsOut = false;
    const std::size_t place = full ? WidestStep(records, standsOut) : 0;
    ring.seam = !full ? Seam::kNone : standsOut ? Seam::kLikely : Seam::kUncertain;
    const auto changes = standsOut ? std::vector<std::size_t>() : ChangesOfThreads(records);
    if (changes.empty()) {
        return place;
    }
    ring.seam = Seam::kUncertain;
    const auto farApart = std::find_if(changes.begin(), changes.end(), [&](std::size_t change) {
        return !MayBeOfOneProcess(records[change - 1].data.threadId, records[change].data.threadId);
    });
    return farApart != changes.end() ? *farApart : full && changes.size() == 1 ? changes.front() : place;
}

/// How likely a ring with these steps shows others, in the density per second.
class Likelihood {
  public:
    explicit Likelihood(const std::vector<RingRecord>& records) {
        std::vector<std::int64_t> steps;
        for (std::size_t i = 0; i + 1 < records.size(); ++i) {
            steps.push_back(StepBetween(records[i], records[i + 1]));
        }
        const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
        std::nth_element(steps.begin(), middle, steps.end());
        usual_ = std::max(Seconds(*middle), kShortest);
        pause_ = 1.0 / static_cast<double>(records.size());
    }

    /// Of a step between two records: about the usual one, or a pause of any length.
    double OfStep(std::int64_t step) const { return LikeOthers(Seconds(step)) + pause_; }

    /// Of the time between a ring's newest record and the moment at which it was read: like another step, or
    /// very short, since the failure itself writes records, or anything if the ring was idle. Few records are
    /// written between the head and the ring.
    double OfEnd(std::int64_t time) const {
        constexpr double kDecades = 13.8; // ln of a second in the shortest
        const double seconds = Seconds(std::abs(time));
        return (time < 0 ? 0.3 : 1.0) *
               (0.3 + 0.35 * LikeOthers(seconds) + 0.35 / (kDecades * (seconds + kShortest)));
    }

  private:
    static constexpr double kShortest = 1e-6;

    static double Seconds(std::int64_t time) { return static_cast<double>(time) / kSecond; }
    double LikeOthers(double seconds) const { return usual_ / ((seconds + usual_) * (seconds + usual_)); }

    double usual_ = 0;
    double pause_ = 0;
};

/// Where the moment is known at which the ring was read: the newest record was written closely before it, and
/// the step to the oldest need not be like the others.
std::size_t PlaceByTicks(Ring& ring, bool full, std::int64_t ticks) {
    /// A change of threads alone seldom is another process.
    constexpr double kTakenOver = 0.05;
    const auto& records = ring.records;
    const Likelihood likelihood(records);
    std::size_t place = 0;
    double best = -1;
    double second = -1;
    const auto consider = [&](std::size_t candidate, double factor) {
        const RingRecord& newest = records[(candidate + records.size() - 1) % records.size()];
        const double value = factor * likelihood.OfEnd(BeforeHead(newest.data.timestamp, ticks));
        second = std::max(second, std::min(value, best));
        place = value > best ? candidate : place;
        best = std::max(value, best);
    };
    const auto stepTo = [&](std::size_t candidate) {
        const std::size_t before = (candidate + records.size() - 1) % records.size();
        return likelihood.OfStep(StepBetween(records[before], records[candidate]));
    };
    if (full) {
        for (std::size_t candidate = 0; candidate < records.size(); ++candidate) {
            consider(candidate, 1 / stepTo(candidate));
        }
    } else {
        consider(0, 1);
        for (const std::size_t change : ChangesOfThreads(records)) {
            consider(change, kTakenOver / stepTo(change));
        }
    }
    ring.seam = !full && place == 0          ? Seam::kNone
                : best > kStandsOut * second ? Seam::kLikely
                                             : Seam::kUncertain;
    return place;
}

/// Where the oldest process of a full ring went round: its oldest record there, or 0 for none.
struct Turn {
    std::size_t place = 0;
    bool doubtful = false;
};

/// Later processes have written over its first slots, so that what stands last and first there is no step of
/// one record to the next, and perhaps over its newest record, so that no place may be one.
Turn TurnOf(const std::vector<RingRecord>& records) {
    if (records.size() < 3) {
        return {};
    }
    std::vector<std::int64_t> steps;
    for (std::size_t i = 1; i < records.size(); ++i) {
        steps.push_back(StepBetween(records[i - 1], records[i]));
    }
    const auto place = static_cast<std::size_t>(std::max_element(steps.begin(), steps.end()) - steps.begin());
    std::sort(steps.rbegin(), steps.rend());
    const auto standsOut = [&](std::int64_t other) {
        return steps.front() > kStandsOut * std::max<std::int64_t>(other, 1);
    };
    return {standsOut(steps[1]) ? place + 1 : 0, standsOut(steps[steps.size() / 2])};
}

/// Each process starts at slot 0, so the newest stands there and the oldest last.
void OrderProcesses(Ring& ring, bool full, std::vector<std::size_t> changes) {
    std::vector<RingRecord> ordered;
    ordered.reserve(ring.records.size());
    ring.stretches.clear();
    changes.insert(changes.begin(), 0);
    std::size_t end = ring.records.size();
    std::for_each(changes.rbegin(), changes.rend(), [&](std::size_t change) {
        const auto first = ring.records.begin() + static_cast<std::ptrdiff_t>(change);
        std::vector<RingRecord> stretch(first, ring.records.begin() + static_cast<std::ptrdiff_t>(end));
        const Turn turn = full && ordered.empty() ? TurnOf(stretch) : Turn();
        std::rotate(stretch.begin(), stretch.begin() + static_cast<std::ptrdiff_t>(turn.place),
                    stretch.end());
        ring.seam = turn.doubtful || ring.seam == Seam::kUncertain ? Seam::kUncertain : Seam::kLikely;
        ring.stretches.push_back(ordered.size());
        ordered.insert(ordered.end(), stretch.begin(), stretch.end());
        end = change;
    });
    ring.records = std::move(ordered);
}

/// Where one process took the ring over from another. A moment at which the ring was read can show that the
/// last slots hold the newest records, so that nobody started again at slot 0.
std::vector<std::size_t> TakenOver(const Ring& ring, std::optional<std::int64_t> ticks) {
    std::vector<Written> written;
    for (const RingRecord& record : ring.records) {
        written.push_back({record.data.threadId, record.data.timestamp});
    }
    auto changes = ProcessChanges(written);
    if (ticks && !changes.empty()) {
        const auto before = [&](std::size_t place) {
            return std::abs(BeforeHead(ring.records[place - 1].data.timestamp, *ticks));
        };
        if (before(ring.records.size()) * kStandsOut < before(changes.front())) {
            changes.clear();
        }
    }
    return changes;
}

/// The clock is run anew for each process, since the device may have restarted in between.
void RecoverTimes(Ring& ring) {
    ring.clockBreaks = 0;
    std::int64_t end = 0;
    for (std::size_t i = 0; i < ring.stretches.size(); ++i) {
        const std::size_t first = ring.stretches[i];
        const std::size_t next = i + 1 < ring.stretches.size() ? ring.stretches[i + 1] : ring.records.size();
        CounterClock clock;
        std::int64_t least = 0;
        for (std::size_t r = first; r < next; ++r) {
            RingRecord& record = ring.records[r];
            record.elapsed = clock.Next(record.data.timestamp, record.data.threadId);
            least = std::min(least, record.elapsed);
        }
        const std::int64_t shift = i == 0 ? 0 : end - least;
        for (std::size_t r = first; r < next; ++r) {
            ring.records[r].elapsed += shift;
            end = std::max(end, ring.records[r].elapsed);
        }
        ring.clockBreaks += clock.Breaks();
    }
}

std::string_view BytesOf(const RingRecord& record) {
    static_assert(std::has_unique_object_representations_v<RingBufferData>);
    return {reinterpret_cast<const char*>(&record.data), sizeof(record.data)};
}

/// After the last record that the dump lacks, or else after the newest one of the dump.
std::optional<std::size_t> PlaceByDump(const std::vector<RingRecord>& records, const Ring& dump) {
    std::unordered_set<std::string_view> dumped;
    for (const RingRecord& record : dump.records) {
        dumped.insert(BytesOf(record));
    }
    const auto isDumped = [&](std::size_t i) {
        return dumped.contains(BytesOf(records[i % records.size()]));
    };
    std::vector<std::size_t> ends;
    std::optional<std::size_t> newest;
    for (std::size_t i = 0; i < records.size(); ++i) {
        if (!isDumped(i) && isDumped(i + 1)) {
            ends.push_back(i + 1);
        }
        if (BytesOf(records[i]) == BytesOf(dump.records.back())) {
            newest = i + 1;
        }
    }
    return ends.size() == 1 ? ends.front() : ends.empty() ? newest : std::nullopt;
}

} // namespace

bool OrderByDump(Ring& ring, const Ring& dump) {
    if (ring.records.size() < 2 || dump.records.empty() || ring.stretches.size() > 1) {
        return false;
    }
    std::vector<RingRecord> bySlot = ring.records;
    std::sort(bySlot.begin(), bySlot.end(),
              [](const RingRecord& a, const RingRecord& b) { return a.slot < b.slot; });
    const auto place = PlaceByDump(bySlot, dump);
    if (!place) {
        return false;
    }
    const std::size_t oldest = *place % bySlot.size();
    std::rotate(bySlot.begin(), bySlot.begin() + static_cast<std::ptrdiff_t>(oldest), bySlot.end());
    ring.records = std::move(bySlot);
    ring.seam = oldest == 0 && ring.records.size() < ring.entries ? Seam::kNone : Seam::kLikely;
    RecoverTimes(ring);
    return true;
}

void OrderRing(Ring& ring, bool full, std::optional<std::int64_t> ticks) {
    auto& records = ring.records;
    auto changes = TakenOver(ring, ticks);
    if (!changes.empty()) {
        OrderProcesses(ring, full, std::move(changes));
    } else if (records.size() > 1) {
        const std::size_t place = ticks ? PlaceByTicks(ring, full, *ticks) : PlaceBySteps(ring, full);
        std::rotate(records.begin(), records.begin() + static_cast<std::ptrdiff_t>(place), records.end());
    }
    RecoverTimes(ring);
}

void RemarkOnOrder(const RingSet& set, Findings& findings) {
    for (const Ring& ring : set.rings) {
        if (ring.seam == Seam::kUncertain) {
            findings.Remark("uncertain-seam",
                            ring.name +
                                ": nothing recorded shows for certain where its newest record meets the "
                                "oldest, or those of an earlier process.");
        }
        if (ring.clockBreaks > 0) {
            findings.Remark("clock-break", ring.name + ": the counters do not fit one run of the clock in " +
                                               Counted(ring.clockBreaks, "place") + ".");
        }
    }
}

} // namespace NimaPost
