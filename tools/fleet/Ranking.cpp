#include "tools/fleet/Ranking.h"

#include <algorithm>
#include <iterator>
#include <set>
#include <tuple>
#include <utility>

namespace NimaPost {

namespace {

/// The firmware of the processes of each case.
class Versions {
  public:
    Versions(const Database& database, const Pattern& pattern) {
        Statement messages(database,
                           "SELECT said.case_id, said.process, coalesce(said.example, messages.text) "
                           "FROM case_messages AS said JOIN messages ON messages.id = said.message_id "
                           "WHERE said.case_id IN (SELECT case_id FROM crashes) "
                           "ORDER BY said.case_id, said.process, said.message_id");
        for (messages.Start(); messages.Next();) {
            if (auto version = pattern.Captured(messages.Text(2).value_or(""))) {
                versions_[messages.Number(0)].try_emplace(messages.Number(1), *std::move(version));
            }
        }
    }

    /// A process whose own lines do not tell it has that of the one before it.
    std::optional<std::string> Of(std::int64_t caseId, std::int64_t process) const {
        const auto found = versions_.find(caseId);
        if (found == versions_.end()) {
            return std::nullopt;
        }
        const std::map<std::int64_t, std::string>& ofCase = found->second;
        const auto after = process == 0 ? ofCase.end() : ofCase.upper_bound(process);
        return std::optional(after == ofCase.begin() ? after->second : std::prev(after)->second);
    }

  private:
    std::map<std::int64_t, std::map<std::int64_t, std::string>> versions_;
};

void AddFirmware(const Database& database, const Pattern& pattern, std::vector<RankedSignature>& ranked) {
    struct Struck {
        std::set<std::int64_t> devices;
        std::int64_t crashes = 0;
    };
    std::map<std::string, std::map<std::optional<std::string>, Struck>> struck;
    const Versions versions(database, pattern);
    // Of an unknown process, it is of the last one that had begun by then.
    Statement crashes(database,
                      "SELECT signature, case_id, coalesce(process, "
                      "(SELECT begun.process FROM processes AS begun WHERE begun.case_id = crashes.case_id "
                      "AND begun.first <= crashes.time ORDER BY begun.first DESC LIMIT 1), 0), device_id "
                      "FROM crashes");
    for (crashes.Start(); crashes.Next();) {
        Struck& each =
            struck[crashes.Text(0).value_or("")][versions.Of(crashes.Number(1), crashes.Number(2))];
        each.devices.insert(crashes.Number(3));
        ++each.crashes;
    }
    for (RankedSignature& signature : ranked) {
        for (const auto& [version, each] : struck[signature.signature]) {
            signature.firmware.push_back(
                {version, static_cast<std::int64_t>(each.devices.size()), each.crashes});
        }
        std::stable_sort(signature.firmware.begin(), signature.firmware.end(),
                         [](const FirmwareShare& a, const FirmwareShare& b) {
                             return std::tie(a.devices, a.crashes) > std::tie(b.devices, b.crashes);
                         });
    }
}

} // namespace

FleetTotals TotalsOf(const Database& database) {
    Statement count(database,
                    "SELECT (SELECT count(*) FROM devices), (SELECT count(*) FROM cases), "
                    "(SELECT count(*) FROM crashes)");
    count.Start();
    count.Next();
    return {count.Number(0), count.Number(1), count.Number(2)};
}

std::vector<RankedSignature> RankSignatures(const Database& database,
                                            const std::optional<Pattern>& versionFrom) {
    std::vector<RankedSignature> ranked;
    Statement all(database,
                  "SELECT signature, count(DISTINCT device_id), count(*), min(time), max(time) FROM crashes "
                  "GROUP BY signature ORDER BY 2 DESC, 3 DESC, 1");
    Statement example(
        database,
        "SELECT cases.path, cases.member, crashes.id FROM crashes JOIN cases ON cases.id = "
        "crashes.case_id WHERE signature = ? ORDER BY time DESC NULLS LAST, crashes.id LIMIT 1");
    for (all.Start(); all.Next();) {
        RankedSignature signature;
        signature.signature = all.Text(0).value_or("");
        signature.devices = all.Number(1);
        signature.crashes = all.Number(2);
        signature.first = all.Text(3);
        signature.last = all.Text(4);
        example.Start(signature.signature);
        if (example.Next()) {
            signature.example = example.Text(0).value_or("");
            signature.exampleMember = example.Text(1).value_or("");
            signature.exampleCrash = example.Number(2);
        }
        ranked.push_back(std::move(signature));
    }
    if (versionFrom) {
        AddFirmware(database, *versionFrom, ranked);
    }
    return ranked;
}

} // namespace NimaPost
