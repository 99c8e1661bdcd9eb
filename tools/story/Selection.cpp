#include "tools/story/Selection.h"

#include <algorithm>

namespace NimaPost {

std::string Selection::Missing(const Processes& known) const {
    const auto& processes = known.All();
    if (process && (*process == 0 || *process > processes.size())) {
        return "no process " + std::to_string(*process) + "; there are " +
               (processes.empty() ? "none" : std::to_string(processes.size()));
    }
    const bool hasBoot = std::any_of(processes.begin(), processes.end(),
                                     [&](const ProcessFacts& facts) { return facts.boot == boot; });
    return !boot || hasBoot ? "" : "no boot " + std::to_string(*boot) + " in the folder";
}

} // namespace NimaPost
