#include "tools/fleet/FleetData.h"

#include "tools/base/Json.h"

#include <cstdint>
#include <map>
#include <string>
#include <utility>

namespace NimaPost {

namespace {

/// What a reader looks at.
constexpr std::size_t kMostShared = 30;
constexpr std::size_t kMostDevices = 200;

Json OrNull(const std::optional<std::string>& text) {
    return text ? Json(*text) : Json();
}

/// What devices without a crash say: on how many of them each message was seen.
struct Healthy {
    explicit Healthy(const Database& database) {
        Statement count(database,
                        "SELECT count(*) FROM devices WHERE id NOT IN (SELECT device_id FROM crashes)");
        count.Start();
        count.Next();
        devices = count.Number(0);
        Statement all(
            database,
            "SELECT said.message_id, count(DISTINCT cases.device_id) FROM case_messages AS said "
            "JOIN cases ON cases.id = said.case_id "
            "WHERE cases.device_id NOT IN (SELECT device_id FROM crashes) GROUP BY said.message_id");
        for (all.Start(); all.Next();) {
            messages[all.Number(0)] = all.Number(1);
        }
    }

    std::int64_t devices = 0;
    std::map<std::int64_t, std::int64_t> messages;
};

/// Crashes by day; null is the day of those without a date.
Json DaysJson(const Database& database, const std::string& signature) {
    Statement days(database,
                   "SELECT substr(time, 1, 10), count(*) FROM crashes WHERE signature = ? GROUP BY 1 "
                   "ORDER BY 1");
    Json json = Json::array();
    for (days.Start(signature); days.Next();) {
        json.push_back({OrNull(days.Text(0)), days.Number(1)});
    }
    return json;
}

Json DevicesJson(const Database& database, const std::string& signature) {
    Statement names(database,
                    "SELECT DISTINCT devices.name FROM crashes JOIN devices ON devices.id = "
                    "crashes.device_id WHERE signature = ? ORDER BY 1 LIMIT ?");
    Json json = Json::array();
    for (names.Start(signature, static_cast<std::int64_t>(kMostDevices)); names.Next();) {
        json.push_back(names.Text(0).value_or(""));
    }
    return json;
}

Json FramesJson(const Database& database, std::int64_t crash) {
    Statement frames(
        database, "SELECT line, foreign_module, in_signature FROM frames WHERE crash_id = ? ORDER BY frame");
    Json json = Json::array();
    for (frames.Start(crash); frames.Next();) {
        json.push_back({frames.Text(0).value_or(""), frames.Number(1), frames.Number(2)});
    }
    return json;
}

/// What more than half of the struck devices said shortly before, and fewer than a tenth of the healthy ones
/// ever.
Json MessagesJson(const Database& database, const RankedSignature& signature, const Healthy& healthy) {
    constexpr std::int64_t kTenth = 10;
    Statement shared(database,
                     "SELECT m.id, m.level, m.name, m.text, count(DISTINCT c.device_id) FROM crashes AS c "
                     "JOIN crash_messages AS said ON said.crash_id = c.id "
                     "JOIN messages AS m ON m.id = said.message_id "
                     "WHERE c.signature = ?1 GROUP BY m.id HAVING count(DISTINCT c.device_id) * 2 > ?2 "
                     "ORDER BY 5 DESC, m.name, m.text");
    Json json = Json::array();
    shared.Start(signature.signature, signature.devices);
    while (json.size() < kMostShared && shared.Next()) {
        const auto found = healthy.messages.find(shared.Number(0));
        const std::int64_t others = found != healthy.messages.end() ? found->second : 0;
        if (others * kTenth < healthy.devices || healthy.devices == 0) {
            json.push_back({{"level", shared.Text(1).value_or("")},
                            {"name", shared.Text(2).value_or("")},
                            {"text", shared.Text(3).value_or("")},
                            {"struck", shared.Number(4)},
                            {"healthy", others}});
        }
    }
    return json;
}

Json FirmwareForPage(const RankedSignature& signature) {
    Json json = Json::array();
    for (const FirmwareShare& share : signature.firmware) {
        json.push_back({OrNull(share.version), share.devices, share.crashes});
    }
    return json;
}

} // namespace

Json SignaturesForPage(const Database& database, const std::vector<RankedSignature>& ranked) {
    const Healthy healthy(database);
    Json all = Json::array();
    for (const RankedSignature& signature : ranked) {
        all.push_back({{"signature", signature.signature},
                       {"devices", signature.devices},
                       {"crashes", signature.crashes},
                       {"first", OrNull(signature.first)},
                       {"last", OrNull(signature.last)},
                       {"example", signature.example},
                       {"member", signature.exampleMember},
                       {"days", DaysJson(database, signature.signature)},
                       {"struck", DevicesJson(database, signature.signature)},
                       {"frames", FramesJson(database, signature.exampleCrash)},
                       {"messages", MessagesJson(database, signature, healthy)},
                       {"healthy", healthy.devices},
                       {"firmware", FirmwareForPage(signature)}});
    }
    return all;
}

} // namespace NimaPost
