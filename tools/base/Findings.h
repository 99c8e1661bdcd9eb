#pragma once

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace NimaPost {

/// Something that a reader reports about its input: a code for programs, "torn-record" for example, and a
/// sentence for people. Codes are listed in doc/nima-post.md, those of nima-ctl in doc/nima-ctl-json.md, and
/// do not change.
struct Finding {
    std::string_view code; ///< a literal
    std::string sentence;
};

/// Damage is what could not be read; a remark is what an engineer should know about what was read.
struct Findings {
    std::vector<Finding> damage;
    std::vector<Finding> remarks;

    void Damage(std::string_view code, std::string sentence) {
        damage.push_back({code, std::move(sentence)});
    }
    void Remark(std::string_view code, std::string sentence) {
        remarks.push_back({code, std::move(sentence)});
    }

    /// Whether there is damage with this code.
    bool Holds(std::string_view code) const {
        return std::any_of(damage.begin(), damage.end(),
                           [&](const Finding& each) { return each.code == code; });
    }

    /// Adds the findings of a file, each with the file's name in front.
    void Append(const std::string& file, const Findings& others) {
        for (const auto& [from, to] : {std::pair(&others.damage, &damage), {&others.remarks, &remarks}}) {
            for (const Finding& finding : *from) {
                to->push_back({finding.code, file + ": " + finding.sentence});
            }
        }
    }
};

/// All of both, in this order.
inline Findings Joined(Findings first, const Findings& second) {
    first.damage.insert(first.damage.end(), second.damage.begin(), second.damage.end());
    first.remarks.insert(first.remarks.end(), second.remarks.begin(), second.remarks.end());
    return first;
}

/// The exit status of a command.
enum ExitCode { kExitFine = 0, kExitDamaged = 1, kExitUnusable = 2 };

} // namespace NimaPost
