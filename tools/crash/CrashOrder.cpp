#include "tools/crash/CrashOrder.h"

#include "tools/base/BackupName.h"
#include "tools/base/CounterClock.h"

#include <algorithm>
#include <array>
#include <deque>
#include <map>

namespace NimaPost {

namespace {

/// No writer keeps more backups.
constexpr std::uint64_t kMostBackups = 999;

struct Ranked {
    std::size_t index = 0;
    std::uint64_t number = 0;
    const CrashTraits* traits = nullptr;
    /// The boot cycle lies between these: where the host has set none, older and newer files bound it.
    std::uint64_t leastCycle = 0;
    std::uint64_t mostCycle = UINT64_MAX;
};

/// The crash logs of one name, the oldest first.
using Family = std::deque<Ranked>;

std::map<std::string, Family> Families(const std::vector<CrashTraits>& crashes) {
    std::map<std::string, Family> families;
    for (std::size_t i = 0; i < crashes.size(); ++i) {
        const BackupName name = SplitBackupName(crashes[i].file, kMostBackups);
        families[name.base].push_back({i, name.number, &crashes[i]});
    }
    for (auto& [base, family] : families) {
        std::stable_sort(family.begin(), family.end(),
                         [](const Ranked& a, const Ranked& b) { return a.number > b.number; });
        std::uint64_t least = 0;
        for (Ranked& each : family) {
            least = std::max(least, each.traits->bootCycle.value_or(0));
            each.leastCycle = each.traits->bootCycle.value_or(least);
        }
        std::uint64_t most = UINT64_MAX;
        std::for_each(family.rbegin(), family.rend(), [&](Ranked& each) {
            most = std::min(most, each.traits->bootCycle.value_or(UINT64_MAX));
            each.mostCycle = std::max(each.traits->bootCycle.value_or(most), each.leastCycle);
        });
    }
    return families;
}

bool EarlierByCycle(const Ranked& a, const Ranked& b) {
    return a.mostCycle < b.leastCycle;
}

/// A counter tells how long the device has been up, give or take a period.
bool FarBelow(std::int64_t counter, std::int64_t other) {
    const auto apart = static_cast<std::uint64_t>(other) - static_cast<std::uint64_t>(counter);
    return other > counter && apart > static_cast<std::uint64_t>(kCounterPeriod);
}

bool EarlierByCounter(const Ranked& a, const Ranked& b) {
    return a.traits->bootCycle && a.traits->bootCycle == b.traits->bootCycle && a.traits->ticks &&
           b.traits->ticks && FarBelow(*a.traits->ticks, *b.traits->ticks);
}

/// Of one second, by their counters and what is left of their microseconds: whether these tell that b was
/// written after a. A clock that began with the device shows the same second in every boot.
bool EarlierInSecond(const CrashTraits& a, const CrashTraits& b) {
    if (!a.ticks || !b.ticks || BeganWithTheDevice(*a.date, *a.ticks) ||
        BeganWithTheDevice(*b.date, *b.ticks)) {
        return false;
    }
    const std::int64_t step = NearestStep(*a.ticks, *b.ticks);
    const auto [unseen, misfit] = WallOffset(*a.date, 0).Compare(*b.date, step);
    return misfit < kHeadTakes && step + unseen * kCounterPeriod > 0;
}

bool EarlierByDate(const Ranked& a, const Ranked& b) {
    const auto& date = a.traits->date;
    const auto& other = b.traits->date;
    return date && (!other || date->second < other->second ||
                    (date->second == other->second && EarlierInSecond(*a.traits, *b.traits)));
}

/// Leaves those that none of the others precedes by its boot cycle.
void KeepFirstByCycle(std::vector<Family*>& families) {
    const auto first = std::min_element(
        families.begin(), families.end(),
        [](const Family* a, const Family* b) { return a->front().mostCycle < b->front().mostCycle; });
    const std::uint64_t least = (*first)->front().mostCycle;
    std::erase_if(families, [&](const Family* each) { return each->front().leastCycle > least; });
}

/// Leaves those that none of the others precedes by its counter.
void KeepFirstByCounter(std::vector<Family*>& families) {
    std::map<std::uint64_t, const Ranked*> leastOfCycle;
    for (const Family* family : families) {
        const Ranked& crash = family->front();
        if (crash.traits->bootCycle && crash.traits->ticks) {
            const Ranked*& least = leastOfCycle.try_emplace(*crash.traits->bootCycle, &crash).first->second;
            least = *crash.traits->ticks < *least->traits->ticks ? &crash : least;
        }
    }
    std::erase_if(families, [&](const Family* each) {
        const auto least = leastOfCycle.find(each->front().traits->bootCycle.value_or(0));
        return least != leastOfCycle.end() && EarlierByCounter(*least->second, each->front());
    });
}

CrashEvidence EvidenceFor(const Ranked& before, const Family* family, const Family* familyBefore,
                          const Ranked& crash) {
    return family == familyBefore                               ? CrashEvidence::kFileNumber
           : EarlierByCycle(before, crash)                      ? CrashEvidence::kBootCycle
           : EarlierByCounter(before, crash)                    ? CrashEvidence::kCounter
           : crash.traits->date && EarlierByDate(before, crash) ? CrashEvidence::kDate
                                                                : CrashEvidence::kNothing;
}

} // namespace

std::string_view EvidenceInWords(CrashEvidence evidence) {
    constexpr std::array<std::string_view, 7> kWords{"file number", "boot cycle", "counter", "date",
                                                     "file time",   "assumed",    ""};
    return kWords[static_cast<std::size_t>(evidence)];
}

std::vector<OrderedCrash> OrderCrashes(const std::vector<CrashTraits>& crashes) {
    std::map<std::string, Family> families = Families(crashes);
    std::vector<OrderedCrash> order;
    std::optional<Ranked> before;
    const Family* familyBefore = nullptr;
    while (order.size() < crashes.size()) {
        std::vector<Family*> heads;
        for (auto& [base, family] : families) {
            if (!family.empty()) {
                heads.push_back(&family);
            }
        }
        KeepFirstByCycle(heads);
        KeepFirstByCounter(heads);
        Family* const next = *std::min_element(
            heads.begin(), heads.end(),
            [](const Family* a, const Family* b) { return EarlierByDate(a->front(), b->front()); });
        const Ranked crash = next->front();
        next->pop_front();
        order.push_back({crash.index,
                         before ? EvidenceFor(*before, next, familyBefore, crash) : CrashEvidence::kNothing});
        before = crash;
        familyBefore = next;
    }
    return order;
}

} // namespace NimaPost
