#include "tools/axis/Processes.h"

#include <algorithm>
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
    add(TimesAreAssumed(), "times");
    return doubts;
}

std::vector<std::size_t> Processes::AddInOrder(const std::vector<ProcessFacts>& all) {
    std::set<std::uint32_t> taken;
    for (const ProcessFacts& facts : all) {
        taken.insert(facts.threads.begin(), facts.threads.end());
    }
    std::vector<std::size_t> numbers;
    for (const ProcessFacts& facts : all) {
        for (const Succession& succession : successions_) {
            AddEarlier(succession, facts, taken);
        }
        numbers.push_back(Add(facts));
    }
    return numbers;
}

void Processes::AddEarlier(const Succession& succession, const ProcessFacts& than,
                           const std::set<std::uint32_t>& taken) {
    const auto found = std::find_if(succession.begin(), succession.end(),
                                    [&](const auto& threads) { return ShareAny(threads, than.threads); });
    if (found == succession.end()) {
        return;
    }
    for (auto each = succession.begin(); each != found; ++each) {
        const bool isKnown = ShareAny(*each, taken) ||
                             std::any_of(all_.begin(), all_.end(),
                                         [&](const auto& known) { return ShareAny(*each, known.threads); });
        if (!isKnown && !each->empty()) {
            ProcessFacts facts;
            facts.threads = *each;
            facts.next = than.first;
            facts.proof = kOnlyUndated;
            Add(std::move(facts));
        }
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

std::optional<std::size_t> Processes::WithAnyOf(const std::set<std::uint32_t>& threads) const {
    std::optional<std::size_t> found;
    for (std::size_t i = 0; i < all_.size(); ++i) {
        const auto has = [&](std::uint32_t thread) { return all_[i].threads.contains(thread); };
        if (std::any_of(threads.begin(), threads.end(), has)) {
            if (found) {
                return std::nullopt;
            }
            found = i + 1;
        }
    }
    return found;
}

std::string ProcessInWords(std::size_t process, std::optional<std::size_t> boot, bool probably) {
    return "process " + std::to_string(process) + (probably ? ", probably boot " : ", boot ") +
           (boot ? std::to_string(*boot) : "unknown");
}

} // namespace NimaPost
