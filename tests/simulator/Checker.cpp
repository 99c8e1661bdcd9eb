#include "tests/simulator/Checker.h"

#include "tests/simulator/Claims.h"
#include "tools/base/TimeMarks.h"
#include "tools/input/EvidenceReader.h"
#include "tools/log/LogSet.h"
#include "tools/names/Names.h"
#include "tools/rings/RingSource.h"
#include "tools/story/Statistics.h"
#include "tools/story/Story.h"

#include <algorithm>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <vector>

namespace Simulator {

namespace {

using NimaPost::EventKind;
using NimaPost::LogEntry;
using NimaPost::TimelineEvent;

/// "#17; page 3": the serial number of a line's message; 0 where it bears none.
std::uint64_t SerialOf(std::string_view message) {
    std::uint64_t serial = 0;
    std::size_t at = 1;
    for (; at < message.size() && message[at] >= '0' && message[at] <= '9' && at < 12; ++at) {
        serial = serial * 10 + static_cast<std::uint64_t>(message[at] - '0');
    }
    return message.starts_with('#') && at < message.size() && message[at] == ';' ? serial : 0;
}

Claim ClaimOf(const NimaPost::Certainty& certainty) {
    Claim claim;
    claim.later = certainty.later;
    claim.earlier = certainty.earlier;
    claim.premise = certainty.premise;
    claim.originLater = certainty.originLater;
    claim.exact = NimaPost::SurenessOf(certainty) <= NimaPost::Sureness::kCut;
    return claim;
}

bool IsLog(const std::string& name) {
    return name.ends_with(".log");
}

/// Between the date of a crash log's head and its stamp.
constexpr std::int64_t kHeadDelay = 8 * kMillisecond;

/// A log and its backup are one place.
std::string BaseOf(const std::string& name) {
    return name.substr(0, name.find(".log"));
}

/// Rings have an order each, and so has every file.
std::string PlaceOf(const NimaPost::Story& story, std::size_t file, std::string_view ring) {
    return story.Files()[file].name + " " + std::string(ring);
}

std::set<std::string> GuessedRings(const NimaPost::Story& story) {
    std::set<std::string> places;
    if (const auto* source = story.Find<NimaPost::RingSource>()) {
        for (const auto& [file, placed] : source->All()) {
            for (const NimaPost::Ring& ring : placed.set.rings) {
                if (ring.seam == NimaPost::Seam::kUncertain) {
                    places.insert(PlaceOf(story, file, ring.name));
                }
            }
        }
    }
    return places;
}

void AddEvidence(const NimaPost::Story& story, const Files& files, Claims& claims) {
    std::set<std::string> logs;
    for (const auto& [name, file] : files.All()) {
        if (name.find(".log") != std::string::npos) {
            logs.insert(BaseOf(name));
        }
    }
    std::map<std::size_t, std::string> evidence;
    for (const NimaPost::ProcessFacts& process : story.Time().AllProcesses().All()) {
        evidence.emplace(evidence.size() + 1, process.evidence);
    }
    claims.Told(std::move(evidence), logs.size() == 1);
}

void AddDamage(const NimaPost::Findings& findings, const Truth& truth, Strictness strictness,
               Verdict& verdict) {
    for (const NimaPost::Finding& finding : findings.damage) {
        if (!truth.damaged && strictness == Strictness::kEverything) {
            verdict.Add(Fault::kDamage, std::string(finding.code) + ": " + finding.sentence);
        }
    }
}

/// Silences, and how long processes ran: where no clock was set, each ends after it began.
void CheckSummary(const NimaPost::Story& story, const Truth& truth, Strictness strictness, Claims& claims,
                  Verdict& verdict) {
    for (const NimaPost::Statistics::Gap& gap : NimaPost::StatisticsOf(story).gaps) {
        claims.AddGap(gap.from, gap.until, gap.length);
    }
    const bool anySet = std::any_of(truth.clocks.begin(), truth.clocks.end(),
                                    [&](const auto& clock) { return truth.clocks.count(clock.first) > 1; });
    if (anySet || strictness != Strictness::kEverything) {
        return;
    }
    for (const NimaPost::ProcessFacts& process : story.Time().AllProcesses().All()) {
        if (process.first && process.last && *process.last < *process.first) {
            verdict.Add(Fault::kStatement, "a process ends before it began");
        }
    }
}

void CheckStory(const std::string& folder, const Files& files, const Truth& truth, const Whole& whole,
                Strictness strictness, Verdict& verdict) {
    const NimaPost::Names names;
    NimaPost::Story story(names);
    std::string problem;
    NimaPost::Evidence evidence = NimaPost::ReadEvidence({folder}, NimaPost::InputLimits());
    NimaPost::Device none;
    if (!story.Read(evidence.devices.empty() ? none : evidence.devices.front(), folder, problem)) {
        verdict.Add(Fault::kUnreadable, problem);
        return;
    }
    Claims claims(truth, whole, strictness, Scope::kFolder, verdict);
    std::vector<Fact> facts;
    for (const NimaPost::ProcessFacts& process : story.Time().AllProcesses().All()) {
        facts.push_back({process.threads, process.boot, process.doubtful, process.probablyOne,
                         process.linesProbable, process.recordsProbable,
                         process.evidence == "no-clock" || process.evidence == "overlaps"});
    }
    claims.Facts(facts);
    claims.Guessed(GuessedRings(story));
    story.ForEach([&](const TimelineEvent& event) {
        Claim claim = ClaimOf(event.certainty);
        claim.time = story.Time().HasWall() ? event.time : std::nullopt;
        claim.process = event.process;
        claim.boot = event.boot;
        if (claim.process) {
            const Fact& fact = facts[*claim.process - 1];
            const bool recordDoubted = fact.recordsProbable && event.kind != EventKind::kText;
            claim.probably =
                fact.probablyOne || (fact.linesProbable && event.level != "CAL") || recordDoubted;
            claim.bootGuessed = fact.bootGuessed || recordDoubted;
        }
        if (event.kind == EventKind::kText) {
            claim.message = event.text;
            claim.serial = SerialOf(event.text);
            claims.Add(claim, BaseOf(story.Files()[event.file].name));
        } else if (event.kind != EventKind::kRecord && !event.arguments.empty() && event.mark.empty()) {
            // What is marked as torn bears any number.
            claim.serial = event.arguments[0];
            const bool isRing = event.kind == EventKind::kRing;
            claims.Add(claim, PlaceOf(story, event.file, isRing ? event.name : std::string_view()));
        }
        return true;
    });
    CheckSummary(story, truth, strictness, claims, verdict);
    for (const NimaPost::Crash& crash : story.Crashes()) {
        if (crash.log != nullptr && crash.log->log.ticks) {
            Claim claim = ClaimOf(crash.certainty);
            claim.time = crash.time;
            claim.process = crash.process;
            claim.boot = crash.boot;
            const NimaPost::RawDate& date = *crash.log->log.date;
            const std::int64_t after = *crash.time - date.Earliest();
            if (after > date.Spread() + kHeadDelay || -after > crash.certainty.originLater + kHeadDelay) {
                verdict.Add(Fault::kStatement, "a crash's time contradicts its own date");
            }
            claim.probably = crash.process && facts[*crash.process - 1].recordsProbable;
            claims.AddCrash(claim, *crash.log->log.ticks, crash.after < NimaPost::CrashEvidence::kDate);
        }
    }
    AddEvidence(story, files, claims);
    claims.Finish();
    AddDamage(story.AllDamage(), truth, strictness, verdict);
    const bool anyTold =
        std::any_of(story.Files().begin(), story.Files().end(), [](const NimaPost::FolderFile& file) {
            return !file.findings.damage.empty() || !file.findings.remarks.empty();
        });
    if (truth.torn && !anyTold && strictness == Strictness::kEverything) {
        verdict.Add(Fault::kUntold, "a line was cut");
    }
}

/// As `nima-post log FILE` does, backups included.
void CheckLog(const std::string& folder, const std::string& name, const Truth& truth, const Whole& whole,
              Strictness strictness, Verdict& verdict) {
    NimaPost::LogSet logs;
    NimaPost::Evidence evidence =
        NimaPost::ReadEvidence({folder + "/" + name}, NimaPost::InputLimits(), true);
    logs.Add(evidence.devices.at(0));
    AddDamage(logs.Unusable(), truth, strictness, verdict);
    logs.Arrange();
    Claims claims(truth, whole, strictness, Scope::kLog, verdict);
    logs.ForEach([&](const LogEntry& entry) {
        Claim claim = ClaimOf(entry.certainty);
        claim.time = entry.hasTime && entry.hasWall ? std::optional(entry.time) : std::nullopt;
        claim.message = entry.line.message;
        claim.serial = SerialOf(claim.message);
        claims.Add(claim, "log " + name);
        return true;
    });
    for (const NimaPost::Finding& finding : logs.ClockStatement()) {
        if (std::string_view(finding.code) == "clock-set") {
            claims.ClockWasSet();
        }
    }
    claims.Finish();
}

} // namespace

Verdict Check(const std::string& folder, const Files& files, const Truth& truth, Strictness strictness) {
    Verdict verdict;
    const Whole whole(files, truth);
    CheckStory(folder, files, truth, whole, strictness, verdict);
    for (const auto& [name, file] : files.All()) {
        if (IsLog(name) && !file->content.empty()) {
            CheckLog(folder, name, truth, whole, strictness, verdict);
        }
    }
    return verdict;
}

Verdict StoreAndCheck(const std::string& folder, World& world, Strictness strictness) {
    world.truth.clocks = world.device.Clocks();
    world.truth.dateDelay = world.device.LongestDateDelay();
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    world.files.Store(folder);
    return Check(folder, world.files, world.truth, strictness);
}

} // namespace Simulator
