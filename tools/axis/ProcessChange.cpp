#include "tools/axis/ProcessChange.h"

#include "tools/base/CounterClock.h"

#include <algorithm>
#include <iterator>
#include <unordered_map>

namespace NimaPost {

namespace {

/// Threads of one process are closer together than this in its address space, and so are their identifiers.
constexpr std::uint32_t kOneProcess = 1U << 29;
/// So many records show how steadily a thread writes.
constexpr std::size_t kFewest = 3;
/// A silence this many times longer than any before is none of a thread that goes on.
constexpr int kTellingSilence = 4;
/// On a busy device a thread waits for the processor for shorter than this.
constexpr std::int64_t kLongestWait = kSecond;
/// Threads near a place that are looked at.
constexpr std::size_t kNeighbours = 64;

/// A place among the records, and the time since the first one, at the least.
struct Point {
    std::size_t record = 0;
    std::int64_t time = 0;
};

struct Writer {
    std::uint32_t thread = 0;
    Point first;
    Point last;
    std::size_t records = 0;
    Point widest; ///< steps between two of its records

    bool MissedFor(std::size_t others, std::int64_t time) const {
        return others > kTellingSilence * std::max<std::size_t>(widest.record, 1) &&
               time > std::max(kTellingSilence * widest.time, kLongestWait);
    }
};

class Places {
  public:
    explicit Places(std::span<const Written> records) {
        std::unordered_map<std::uint32_t, std::size_t> known;
        times_.reserve(records.size());
        std::int64_t newest = records.empty() ? 0 : records.front().counter;
        std::int64_t time = 0;
        for (std::size_t i = 0; i < records.size(); ++i) {
            // A fall is a late writer.
            const std::int64_t step = NearestStep(newest, records[i].counter);
            newest = step > 0 ? records[i].counter : newest;
            time += std::max<std::int64_t>(step, 0);
            times_.push_back(time);
            const Point here{i, time};
            const auto [found, fresh] = known.try_emplace(records[i].thread, writers_.size());
            if (fresh) {
                writers_.push_back({records[i].thread, here, here, 0, {}});
            }
            Writer& writer = writers_[found->second];
            writer.widest.record = std::max(writer.widest.record, i - writer.last.record);
            writer.widest.time = std::max(writer.widest.time, time - writer.last.time);
            writer.last = here;
            ++writer.records;
        }
        std::remove_copy_if(writers_.begin(), writers_.end(), std::back_inserter(steady_), IsRare);
    }

    std::vector<std::size_t> Find() {
        // By their first record, which is how they were added.
        std::vector<std::size_t> places;
        std::size_t reach = 0;
        for (const Writer& writer : writers_) {
            const std::size_t place = writer.first.record;
            if (place == reach + 1 && IsChange(place)) {
                places.push_back(place);
                start_ = place;
                before_.clear();
            }
            reach = std::max(reach, writer.last.record);
            if (!IsRare(writer)) {
                Keep(writer);
            }
        }
        return places;
    }

  private:
    static bool IsRare(const Writer& writer) { return writer.records < kFewest; }

    /// Those that wrote last are the neighbours of whatever place comes.
    void Keep(const Writer& writer) {
        ++begun_;
        before_.push_back(writer);
        if (before_.size() > kNeighbours) {
            before_.erase(std::min_element(
                before_.begin(), before_.end(),
                [](const Writer& a, const Writer& b) { return a.last.record < b.last.record; }));
        }
    }

    bool IsChange(std::size_t place) const {
        const std::span<const Writer> rest = std::span(steady_).subspan(begun_);
        const std::span<const Writer> after = rest.first(std::min(rest.size(), kNeighbours));
        const auto stopped = std::count_if(before_.begin(), before_.end(), [&](const Writer& each) {
            return place - 1 - each.last.record <= kTellingSilence * each.widest.record &&
                   times_[place - 1] - each.last.time <= kTellingSilence * each.widest.time &&
                   each.MissedFor(times_.size() - place, times_.back() - times_[place]);
        });
        const auto started = std::count_if(after.begin(), after.end(), [&](const Writer& each) {
            return each.MissedFor(place - start_, times_[place - 1] - times_[start_]);
        });
        return (stopped > 1 && started > 1) || FarApart(before_, after);
    }

    /// Of those that follow, the ones count that write at the same time: later ones may be of a third
    /// process.
    static bool FarApart(std::span<const Writer> before, std::span<const Writer> after) {
        std::size_t reach = after.empty() ? 0 : after.front().last.record;
        for (const Writer& b : after) {
            if (b.first.record > reach) {
                break;
            }
            reach = std::max(reach, b.last.record);
            if (std::any_of(before.begin(), before.end(),
                            [&](const Writer& a) { return MayBeOfOneProcess(a.thread, b.thread); })) {
                return false;
            }
        }
        return !before.empty() && !after.empty();
    }

    std::vector<std::int64_t> times_;
    std::vector<Writer> writers_;
    std::vector<Writer> steady_; ///< those that are not rare
    std::size_t begun_ = 0;      ///< how many of these have begun in front of the place
    std::size_t start_ = 0;      ///< of the process in front of the place
    std::vector<Writer> before_;
};

} // namespace

bool MayBeOfOneProcess(std::uint32_t a, std::uint32_t b) {
    const std::uint32_t apart = a - b;
    return std::min(apart, 0 - apart) < kOneProcess;
}

std::vector<std::size_t> ProcessChanges(std::span<const Written> records) {
    return Places(records).Find();
}

} // namespace NimaPost
