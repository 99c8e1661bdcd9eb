#include "tools/axis/Processes.h"

#include <algorithm>
#include <utility>

namespace NimaPost {

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
