#include "tools/axis/ProcessChange.h"

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
constexpr std::size_t kTellingSilence = 4;
/// Threads near a place that are looked at.
constexpr std::size_t kNeighbours = 64;

struct Writer {
    std::uint32_t thread = 0;
    std::size_t first = 0;
    std::size_t last = 0;
    std::size_t records = 0;
    std::size_t widest = 1; ///< step between two of its records
};

class Places {
  public:
    explicit Places(std::span<const std::uint32_t> threads) : count_(threads.size()) {
        std::unordered_map<std::uint32_t, std::size_t> known;
        for (std::size_t i = 0; i < threads.size(); ++i) {
            const auto [found, fresh] = known.try_emplace(threads[i], writers_.size());
            if (fresh) {
                writers_.push_back({threads[i], i, i, 0, 1});
            }
            Writer& writer = writers_[found->second];
            writer.widest = std::max(writer.widest, i - writer.last);
            writer.last = i;
            ++writer.records;
        }
        std::remove_copy_if(writers_.begin(), writers_.end(), std::back_inserter(steady_), IsRare);
    }

    std::vector<std::size_t> Find() {
        // By their first record, which is how they were added.
        std::vector<std::size_t> places;
        std::size_t reach = 0;
        for (const Writer& writer : writers_) {
            const std::size_t place = writer.first;
            if (place == reach + 1 && IsChange(place)) {
                places.push_back(place);
                start_ = place;
                before_.clear();
            }
            reach = std::max(reach, writer.last);
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
            before_.erase(std::min_element(before_.begin(), before_.end(),
                                           [](const Writer& a, const Writer& b) { return a.last < b.last; }));
        }
    }

    bool IsChange(std::size_t place) const {
        const std::span<const Writer> rest = std::span(steady_).subspan(begun_);
        const std::span<const Writer> after = rest.first(std::min(rest.size(), kNeighbours));
        const auto stopped = std::count_if(before_.begin(), before_.end(), [&](const Writer& each) {
            return place - 1 - each.last <= each.widest * kTellingSilence &&
                   count_ - place > each.widest * kTellingSilence;
        });
        const auto started = std::count_if(after.begin(), after.end(), [&](const Writer& each) {
            return place - start_ > each.widest * kTellingSilence;
        });
        return (stopped > 1 && started > 1) || FarApart(before_, after);
    }

    static bool FarApart(std::span<const Writer> before, std::span<const Writer> after) {
        return !before.empty() && !after.empty() &&
               std::none_of(before.begin(), before.end(), [&](const Writer& a) {
                   return std::any_of(after.begin(), after.end(),
                                      [&](const Writer& b) { return MayBeOfOneProcess(a.thread, b.thread); });
               });
    }

    std::size_t count_;
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

std::vector<std::size_t> ProcessChanges(std::span<const std::uint32_t> threads) {
    return Places(threads).Find();
}

} // namespace NimaPost
