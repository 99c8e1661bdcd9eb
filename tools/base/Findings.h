#pragma once

#include <string>
#include <utility>
#include <vector>

namespace NimaPost {

/// What a reader has to say about its input, in sentences: damage is what could not be read, a remark is what
/// the engineer should know about what was.
struct Findings {
    std::vector<std::string> damage;
    std::vector<std::string> remarks;

    void Damage(std::string sentence) { damage.push_back(std::move(sentence)); }
    void Remark(std::string sentence) { remarks.push_back(std::move(sentence)); }
};

/// How a command ends.
enum ExitCode { kExitFine = 0, kExitDamaged = 1, kExitUnusable = 2 };

} // namespace NimaPost
