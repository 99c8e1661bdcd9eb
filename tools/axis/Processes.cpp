#include "tools/axis/Processes.h"

#include <algorithm>
#include <utility>

namespace NimaPost {

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

void Processes::TakeBootCycle(std::size_t number, std::optional<std::uint64_t> bootCycle) {
    std::optional<std::uint64_t>& known = all_[number - 1].bootCycle;
    known = known ? known : bootCycle;
}

std::string_view DoubtOf(const ProcessFacts& facts) {
    return !facts.boot || !facts.doubtful ? "" : facts.evidence == "clocks-fit" ? "probably" : "perhaps";
}

std::string ProcessInWords(std::size_t process, const ProcessFacts& facts) {
    std::string words = "process " + std::to_string(process) + ", ";
    const std::string_view doubt = DoubtOf(facts);
    words += doubt;
    words += doubt.empty() ? "boot " : " boot ";
    return words + (facts.boot ? std::to_string(*facts.boot) : "unknown");
}

} // namespace NimaPost
