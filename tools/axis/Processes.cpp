#include "tools/axis/Processes.h"

#include <algorithm>
#include <map>
#include <utility>

namespace NimaPost {

namespace {

bool ShareAny(const std::set<std::uint32_t>& a, const std::set<std::uint32_t>& b) {
    const auto& fewer = a.size() < b.size() ? a : b;
    const auto& more = a.size() < b.size() ? b : a;
    return std::any_of(fewer.begin(), fewer.end(), [&](std::uint32_t each) { return more.contains(each); });
}

} // namespace

std::vector<std::string> ProcessFacts::Doubts() const {
    std::vector<std::string> doubts;
    const auto add = [&](bool applies, const char* code) {
        if (applies) {
            doubts.emplace_back(code);
        }
    };
    add(doubtful, "boot");
    add(probablyOne, "one-process");
    add(linesProbable, "lines");
    add(recordsProbable, "records");
    add(assumed, "times");
    return doubts;
}

/// A succession on its way through the processes that it is compared with.
class Processes::Walk {
  public:
    Walk(const Succession& succession, const std::set<std::uint32_t>& taken) : succession_(succession) {
        for (std::size_t i = 0; i < succession.size(); ++i) {
            for (const std::uint32_t thread : succession[i]) {
                place_.try_emplace(thread, i);
            }
            if (!succession[i].empty() && !ShareAny(succession[i], taken)) {
                others_.push_back(i);
            }
        }
    }

    /// Adds those of no process that is compared that stand in front of this one.
    void AddEarlier(const ProcessFacts& than, Processes& processes) {
        std::optional<std::size_t> place;
        for (const std::uint32_t thread : than.threads) {
            const auto found = next_ < others_.size() ? place_.find(thread) : place_.end();
            if (found != place_.end()) {
                place = std::min(place.value_or(found->second), found->second);
            }
        }
        for (; next_ < others_.size() && others_[next_] < place.value_or(0); ++next_) {
            processes.AddUndated(succession_[others_[next_]], than.first);
        }
    }

  private:
    const Succession& succession_;
    std::map<std::uint32_t, std::size_t> place_; ///< where each thread writes first
    std::vector<std::size_t> others_;            ///< of none of the processes
    std::size_t next_ = 0;                       ///< of these
};

std::vector<std::size_t> Processes::AddInOrder(const std::vector<ProcessFacts>& all) {
    std::set<std::uint32_t> taken;
    for (const ProcessFacts& facts : all) {
        taken.insert(facts.threads.begin(), facts.threads.end());
    }
    std::vector<Walk> walks;
    for (const Succession& succession : successions_) {
        walks.emplace_back(succession, taken);
    }
    std::vector<std::size_t> numbers;
    for (const ProcessFacts& facts : all) {
        for (Walk& walk : walks) {
            walk.AddEarlier(facts, *this);
        }
        numbers.push_back(Add(facts));
    }
    return numbers;
}

/// Several traces may tell of the same one.
void Processes::AddUndated(const std::set<std::uint32_t>& threads, std::optional<std::int64_t> next) {
    if (std::none_of(all_.begin(), all_.end(),
                     [&](const ProcessFacts& known) { return ShareAny(threads, known.threads); })) {
        ProcessFacts facts;
        facts.threads = threads;
        facts.next = next;
        facts.proof = kOnlyUndated;
        Add(std::move(facts));
    }
}

void Processes::Widen(std::size_t number, const ProcessFacts& facts) {
    ProcessFacts& known = all_[number - 1];
    if (known.evidence == facts.evidence && facts.first && facts.last) {
        known.first = std::min(known.first.value_or(*facts.first), *facts.first);
        known.last = std::max(known.last.value_or(*facts.last), *facts.last);
        known.assumed = true;
    }
}

std::size_t Processes::Add(ProcessFacts facts) {
    all_.push_back(std::move(facts));
    return all_.size();
}

std::vector<std::size_t> Processes::AllWithAnyOf(const std::set<std::uint32_t>& threads,
                                                 std::optional<std::uint64_t> bootCycle) const {
    std::vector<std::size_t> found;
    for (std::size_t number = 1; number <= all_.size(); ++number) {
        const ProcessFacts& facts = all_[number - 1];
        const auto has = [&](std::uint32_t thread) { return facts.threads.contains(thread); };
        const bool isLater = IsOfAnotherCycle(number, bootCycle) && *facts.bootCycle > *bootCycle;
        if (!isLater && std::any_of(threads.begin(), threads.end(), has)) {
            found.push_back(number);
        }
    }
    return found;
}

std::optional<std::size_t> Processes::WithAnyOf(const std::set<std::uint32_t>& threads,
                                                std::optional<std::uint64_t> bootCycle) const {
    std::vector<std::size_t> found = AllWithAnyOf(threads, bootCycle);
    std::erase_if(found, [&](std::size_t number) { return IsOfAnotherCycle(number, bootCycle); });
    return found.size() == 1 ? std::optional(found.front()) : std::nullopt;
}

bool Processes::IsOfAnotherCycle(std::size_t number, std::optional<std::uint64_t> bootCycle) const {
    const std::optional<std::uint64_t>& known = all_[number - 1].bootCycle;
    return known && bootCycle && *known != *bootCycle;
}

bool Processes::SharesThreads(std::size_t number) const {
    const ProcessFacts& facts = (*this)[number];
    return std::any_of(all_.begin(), all_.end(), [&](const ProcessFacts& other) {
        return &other != &facts && ShareAny(other.threads, facts.threads);
    });
}

void Processes::DoubtRecords(std::size_t number, const std::string& why) {
    ProcessFacts& facts = all_[number - 1];
    if (!facts.recordsProbable) {
        facts.recordsProbable = true;
        facts.proof += "; its records are probably its own: " + why;
    }
}

void Processes::TakeBootCycle(std::size_t number, std::optional<std::uint64_t> bootCycle) {
    std::optional<std::uint64_t>& known = all_[number - 1].bootCycle;
    known = known ? known : bootCycle;
}

std::string_view DoubtOf(const ProcessFacts& facts) {
    return !facts.boot || !facts.doubtful ? "" : facts.evidence == "clocks-fit" ? "probably" : "perhaps";
}

std::string DoubtsInCodes(const ProcessFacts& facts) {
    std::string codes;
    for (const std::string& doubt : facts.Doubts()) {
        codes += (codes.empty() ? "" : " ") + doubt;
    }
    return codes;
}

std::string ProcessInWords(std::size_t process, const ProcessFacts& facts) {
    std::string words = "process " + std::to_string(process) + ", ";
    const std::string_view doubt = DoubtOf(facts);
    words += doubt;
    words += doubt.empty() ? "boot " : " boot ";
    return words + (facts.boot ? std::to_string(*facts.boot) : "unknown");
}

} // namespace NimaPost
