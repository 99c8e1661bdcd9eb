#include "tools/report/PageData.h"

#include "tools/base/CounterClock.h"
#include "tools/base/FindingsJson.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/base/TimeMarks.h"
#include "tools/base/WallClock.h"
#include "tools/crash/CrashSummary.h"
#include "tools/report/CrashData.h"
#include "tools/rings/RingSource.h"

namespace NimaPost {

namespace {

constexpr std::size_t kMostActive = 12;

} // namespace

Json PageData::Crashes() const {
    Json json = Json::array();
    for (std::size_t i = 0; i < story_.Crashes().size(); ++i) {
        json.push_back(CrashJson(story_.Crashes()[i], crashRows_[i]));
    }
    return json;
}

Json PageData::Moment(const std::optional<std::int64_t>& time) const {
    return time ? Json(*time - origin_) : Json();
}

Json PageData::CrashJson(const Crash& crash, const std::optional<std::uint64_t>& row) const {
    const CrashLog* const log = crash.log != nullptr ? &crash.log->log : nullptr;
    return {
        {"title", ToUtf8(crash.title)},
        {"summary", Pairs(Summary(crash))},
        {"exception", log == nullptr || log->exception.empty() ? Json() : Pairs(log->exception)},
        {"extra", log == nullptr ? Json::array() : Json(log->extraData)},
        {"stacks", Stacks(crash)},
        {"activeRings", Active(crash)},
        {"time", selection_.IsOf(crash) && selection_.IsShownIn(crash.time) ? Moment(crash.time) : Json()},
        {"sure", static_cast<int>(SurenessOf(crash.certainty))},
        {"row", row ? Json(*row) : Json()},
        {"boot", crash.boot.value_or(0)},
        {"process", crash.process.value_or(0)},
        {"processWords", crash.process ? ProcessOfCrash(crash, story_) : std::string()},
        {"after", EvidenceInWords(crash.after)},
        {"perhaps", DoubtInWords(crash, story_)}};
}

std::vector<std::pair<std::string, std::string>> PageData::Summary(const Crash& crash) const {
    std::vector<std::pair<std::string, std::string>> pairs;
    if (crash.log != nullptr) {
        pairs = FailureInWords(crash.log->log, TimeInWords(crash, story_.Time()));
    }
    if (crash.process) {
        pairs.emplace_back("process", ProcessOfCrash(crash, story_));
    }
    if (crash.thread) {
        pairs.emplace_back("thread", Hex32(*crash.thread));
    }
    if (crash.processId) {
        pairs.emplace_back("process id", std::to_string(*crash.processId));
    }
    std::string files;
    for (const std::size_t file : crash.files) {
        files += (files.empty() ? "" : ", ") + Printable(story_.Files()[file].name);
    }
    pairs.emplace_back("from", files);
    const std::string_view after = EvidenceInWords(crash.after);
    if (!after.empty()) {
        pairs.emplace_back("after the one before by", after);
    }
    return pairs;
}

Json PageData::Marks() {
    Json json = Json::array();
    for (const TimeMark& mark : kTimeMarks) {
        json.push_back({std::string(1, mark.sign), mark.meaning});
    }
    json.push_back({std::string(1, kOverwrittenMark.sign), kOverwrittenMark.meaning});
    return json;
}

Json PageData::Clock() const {
    constexpr std::int64_t kMillisecond = 1'000'000;
    const std::int64_t below = Modulo(origin_, kMillisecond);
    const bool wall = story_.Time().HasWall();
    return {{"wall", wall},
            {"origin", wall ? Json(WallTimeIso(origin_)) : Json()},
            {"originMs", wall ? Json((origin_ - below) / kMillisecond) : Json()},
            {"originNs", wall ? Json(below) : Json()},
            {"marks", Marks()},
            {"statement", FindingsJson(story_.Time().Statement())}};
}

Json PageData::Files() const {
    Json json = Json::array();
    for (const FolderFile& file : story_.Files()) {
        Json notes = FindingsJson(file.findings.damage);
        for (Json& remark : FindingsJson(file.findings.remarks)) {
            notes.push_back(std::move(remark));
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
                        {"newest", empty ? Json() : Json(newest)},
                        {"sure", static_cast<int>(SurenessOf(placed.certainty))}});
    }
    return json;
}

Json PageData::Processes() const {
    Json json = Json::array();
    for (const ProcessFacts& facts : story_.Time().AllProcesses().All()) {
        json.push_back(
            {{"boot", facts.boot.value_or(0)},
             {"words", ProcessInWords(json.size() + 1, facts)},
             {"first", Moment(facts.first)},
             {"last", Moment(facts.last)},
             {"sure", facts.assumed ? Json(static_cast<int>(SurenessOf(Certainty::Assumed()))) : Json()},
             {"threads", facts.threads.size()},
             {"probable", {{"lines", facts.linesProbable}, {"records", facts.recordsProbable}}},
             {"proof", facts.proof}});
    }
    return json;
}

Json PageData::Boots() const {
    std::map<std::size_t, Json> boots;
    const auto& processes = story_.Time().AllProcesses().All();
    for (std::size_t i = 0; i < processes.size(); ++i) {
        const ProcessFacts& facts = processes[i];
        if (!facts.boot) {
            continue;
        }
        // The first process of a boot is the one that begins it.
        Json& boot = boots
                         .try_emplace(*facts.boot, Json{{"boot", *facts.boot},
                                                        {"first", Json()},
                                                        {"last", Json()},
                                                        {"processes", Json::array()},
                                                        {"proof", facts.proof}})
                         .first->second;
        boot["processes"].push_back(i + 1);
        const auto widen = [&](const char* end, const std::optional<std::int64_t>& time, bool wanted) {
            const Json moment = Moment(time);
            if (!moment.is_null() && (boot[end].is_null() || (moment < boot[end]) == wanted)) {
                boot[end] = moment;
            }
        };
        widen("first", facts.first, true);
        widen("last", facts.last, false);
    }
    Json json = Json::array();
    for (auto& [number, boot] : boots) {
        json.push_back(std::move(boot));
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

Json PageData::Stacks(const Crash& crash) const {
    Json json = Json::array();
    for (const StackTraceSource::Held* const held : crash.stacks) {
        Json stack{{"file", ToUtf8(story_.Files()[held->file].name)},
                   {"header", held->content.report},
                   {"frames", held->content.frames}};
        const auto found = symbols_.find(held->file);
        if (found != symbols_.end()) {
            stack["resolved"] = Json::array();
            for (std::size_t i = 0; i < held->content.frames.size(); ++i) {
                stack["resolved"].push_back(FrameInWords(found->second.resolution, i));
            }
            stack["statement"] = Json::array();
            for (const Finding& finding : found->second.statement) {
                stack["statement"].push_back(ToUtf8(finding.sentence));
            }
        }
        json.push_back(stack);
    }
    return json;
}

Json PageData::Active(const Crash& crash) const {
    Json json = Json::array();
    if (crash.log == nullptr) {
        return json;
    }
    for (const ActiveRing& active : ActiveRings(crash.log->log.rings)) {
        if (json.size() == kMostActive) {
            break;
        }
        json.push_back({{"ring", ToUtf8(active.ring->name)},
                        {"newest", crash.time ? Json(*crash.time - origin_ + active.newest) : Json()},
                        {"sure", static_cast<int>(SurenessOf(Certainty::Assumed()))},
                        {"events", active.ring->records.size()}});
    }
    return json;
}

} // namespace NimaPost
