#include "tools/report/PageData.h"

#include "tools/base/Text.h"
#include "tools/base/WallClock.h"
#include "tools/crash/CrashSource.h"
#include "tools/crash/CrashSummary.h"
#include "tools/crash/StackTraceSource.h"
#include "tools/rings/RingSource.h"

namespace NimaPost {

namespace {

constexpr std::size_t kMostActive = 12;

std::vector<StackTraceSource::Held> StacksOf(const Story& story) {
    const StackTraceSource* const source = story.Find<StackTraceSource>();
    return source != nullptr ? source->All() : std::vector<StackTraceSource::Held>();
}

} // namespace

const CrashLog* NewestCrash(const Story& story) {
    const CrashSource* const source = story.Find<CrashSource>();
    return source != nullptr ? source->Newest() : nullptr;
}

Json PageData::Failure() const {
    const CrashLog* crash = NewestCrash(story_);
    if (crash == nullptr && StacksOf(story_).empty()) {
        return nullptr;
    }
    Json json{{"title", crash != nullptr ? crash->Title() : "The native crash handler left stack traces"}};
    Json summary = Json::array();
    if (crash != nullptr) {
        for (const auto& [label, value] : FailureInWords(*crash)) {
            summary.push_back({ToUtf8(label), ToUtf8(value)});
        }
    }
    json["summary"] = summary;
    json["exception"] = crash == nullptr || crash->exception.empty() ? Json() : Pairs(crash->exception);
    json["extra"] = crash == nullptr ? Json::array() : Json(crash->extraData);
    json["stacks"] = Stacks();
    json["activeRings"] = crash == nullptr ? Json::array() : Active(*crash);
    const auto time = story_.Time().Crash();
    json["time"] = time ? Json(*time - origin_) : Json();
    return json;
}

Json PageData::Clock() const {
    constexpr std::int64_t kMillisecond = 1'000'000;
    Json statement = Json::array();
    for (const Finding& finding : story_.Time().Statement()) {
        statement.push_back(ToUtf8(finding.sentence));
    }
    const bool wall = story_.Time().HasWall();
    return {{"wall", wall},
            {"origin", wall ? Json(WallTimeIso(origin_)) : Json()},
            {"originMs", wall ? Json(static_cast<double>(origin_) / kMillisecond) : Json()},
            {"statement", statement}};
}

Json PageData::Files() const {
    Json json = Json::array();
    for (const FolderFile& file : story_.Files()) {
        Json notes = Json::array();
        for (const auto* findings : {&file.findings.damage, &file.findings.remarks}) {
            for (const Finding& finding : *findings) {
                notes.push_back(ToUtf8(finding.sentence));
            }
        }
        json.push_back({{"name", ToUtf8(file.name)},
                        {"kind", file.row != nullptr ? file.row->kind : "other"},
                        {"bytes", file.bytes},
                        {"state", file.unusable                   ? "unusable"
                                  : !file.findings.damage.empty() ? "damaged"
                                  : file.row == nullptr           ? "skipped"
                                                                  : "ok"},
                        {"notes", notes}});
    }
    return json;
}

Json PageData::Rings() const {
    Json json = Json::array();
    const RingSource* const rings = story_.Find<RingSource>();
    if (rings == nullptr || rings->All().empty()) {
        return json;
    }
    const PlacedRings& placed = rings->All().front().content;
    for (std::size_t i = 0; i < placed.set.rings.size(); ++i) {
        const Ring& ring = placed.set.rings[i];
        const bool empty = ring.records.empty();
        const std::int64_t newest = placed.newest[i] - origin_;
        json.push_back({{"name", ToUtf8(ring.name)},
                        {"entries", ring.entries},
                        {"used", ring.records.size()},
                        {"wrapped", SeamName(ring.seam)},
                        {"oldest", empty ? Json() : Json(newest - ring.records.back().elapsed)},
                        {"newest", empty ? Json() : Json(newest)}});
    }
    return json;
}

Json PageData::Sources() const {
    Json json = Json::array();
    for (const FolderFile& file : story_.Files()) {
        json.push_back(ToUtf8(file.name));
    }
    return json;
}

Json PageData::SourceKinds() const {
    Json json = Json::array();
    for (const FolderFile& file : story_.Files()) {
        json.push_back(file.row != nullptr ? file.row->lane : "log");
    }
    return json;
}

Json PageData::Pairs(const std::vector<std::pair<std::string, std::string>>& pairs) {
    Json json = Json::array();
    for (const auto& [label, value] : pairs) {
        json.push_back({ToUtf8(label), ToUtf8(value)});
    }
    return json;
}

Json PageData::Stacks() const {
    Json json = Json::array();
    for (const auto& [file, stack] : StacksOf(story_)) {
        json.push_back({{"file", ToUtf8(story_.Files()[file].name)},
                        {"header", stack.report},
                        {"frames", stack.frames}});
    }
    return json;
}

Json PageData::Active(const CrashLog& crash) const {
    Json json = Json::array();
    for (const ActiveRing& active : ActiveRings(crash.rings)) {
        if (json.size() == kMostActive) {
            break;
        }
        const auto time = story_.Time().Crash();
        json.push_back({{"ring", ToUtf8(active.ring->name)},
                        {"newest", time ? Json(*time - origin_ + active.newest) : Json()},
                        {"events", active.ring->records.size()}});
    }
    return json;
}

} // namespace NimaPost
