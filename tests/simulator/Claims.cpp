#include "tests/simulator/Claims.h"

#include <algorithm>
#include <array>
#include <climits>

namespace Simulator {

namespace {

using Premise = NimaPost::Certainty::Premise;

/// Between a stamp and its store others may store.
constexpr std::int64_t kStoreDelay = 100 * kMillisecond;
/// Between the stamp of a calibration line and its date, by which times may be too late.
constexpr std::int64_t kDateDelay = 5 * kMillisecond;
/// Beside the delay of dates: they are cut to microseconds.
constexpr std::int64_t kSlack = kMillisecond;
constexpr std::size_t kMostDetails = 40;

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}

/// Whether a line can begin here, and its counter's first digit is known.
bool CanBegin(const std::string& content, std::size_t at, bool inMidLine) {
    return at == 0 || content[at - 1] == '\n' ||
           (inMidLine && !IsDigit(content[at - 1]) && content[at - 1] != '-');
}

} // namespace

std::string_view NameOf(Fault fault) {
    constexpr std::array<std::string_view, kFaults> kNames{
        "unreadable",    "early",      "late",     "set-clock", "unlikely", "exact",   "order",
        "guessed-order", "missing",    "repeated", "damage",    "untold",   "process", "boot",
        "proof",         "split-boot", "threads",  "numbers",   "statement"};
    return kNames[static_cast<std::size_t>(fault)];
}

bool Verdict::Failed() const {
    for (std::size_t i = 0; i < kFaults; ++i) {
        const auto fault = static_cast<Fault>(i);
        if (counts[i] > 0 && fault != Fault::kGuess && fault != Fault::kSetClock &&
            fault != Fault::kUnlikely) {
            return true;
        }
    }
    return false;
}

void Verdict::Add(Fault fault, const std::string& detail) {
    if (counts[static_cast<std::size_t>(fault)]++ < 5 && details.size() < kMostDetails) {
        details.push_back(std::string(NameOf(fault)) + ": " + detail);
    }
}

Whole::Whole(const Files& files, const Truth& truth) {
    for (const auto& [name, file] : files.All()) {
        Scan(file->content, truth);
        ScanCalibrations(file->content, truth);
        records_.insert(file->records.begin(), file->records.end());
    }
}

void Whole::Scan(const std::string& content, const Truth& truth) {
    for (std::size_t at = content.find("> #"); at != std::string::npos; at = content.find("> #", at + 1)) {
        const std::size_t mark = at + 2;
        std::uint64_t serial = 0;
        std::size_t end = mark + 1;
        for (; end < content.size() && IsDigit(content[end]) && end < mark + 12; ++end) {
            serial = serial * 10 + static_cast<std::uint64_t>(content[end] - '0');
        }
        const Stamp* stamp = truth.Of(serial);
        if (stamp == nullptr || end == content.size() || content[end] != ';' || stamp->header.size() > mark) {
            continue;
        }
        const std::size_t begin = mark - stamp->header.size();
        if (content.compare(begin, stamp->header.size(), stamp->header) == 0 &&
            CanBegin(content, begin, false)) {
            lines_.insert(serial);
        }
    }
}

void Whole::ScanCalibrations(const std::string& content, const Truth& truth) {
    for (const auto& [message, stamp] : truth.calibrations) {
        const std::size_t at = content.find(stamp.header + message + "\r\n");
        const bool isOnly = truth.calibrations.count(message) == 1;
        if (isOnly && at != std::string::npos && CanBegin(content, at, true)) {
            calibrations_.insert(message);
        }
    }
}

const Stamp* Claims::TruthOf(const Claim& claim) const {
    if (claim.serial != 0) {
        const Stamp* stamp = truth_.Of(claim.serial);
        return stamp != nullptr && (stamp->kind != Kind::kText || whole_.Has(claim.serial)) ? stamp : nullptr;
    }
    const std::string message(claim.message);
    const bool known = whole_.Calibrations().contains(message);
    return known ? &truth_.calibrations.find(message)->second : nullptr;
}

void Claims::Add(const Claim& claim, const std::string& place) {
    const Stamp* const stamp = TruthOf(claim);
    if (stamp == nullptr) {
        return;
    }
    std::string where = place + ", ";
    where += claim.serial != 0 ? "#" + std::to_string(claim.serial) : std::string(claim.message);
    where += " of process " + std::to_string(stamp->process);
    if (claim.serial != 0 && !told_.insert(claim.serial).second) {
        verdict_.Add(Fault::kRepeated, where);
    }
    if (claim.serial == 0) {
        toldCalibrations_.insert(std::string(claim.message));
    }
    if (scope_ == Scope::kFolder) {
        Count(claim, *stamp);
        if (claim.time && stamp->kind == Kind::kText) {
            lines_.emplace(*claim.time, stamp);
        }
    }
    CheckTime(claim, *stamp, where);
    // What may be earlier without bound claims no place among others.
    if (strictness_ == Strictness::kEverything && claim.serial != 0 && claim.earlier != Claim::kUnbounded) {
        CheckOrder(claim, *stamp, place, where);
    }
}

void Claims::AddCrash(const Claim& claim, std::int64_t counter, bool isLater) {
    const auto found = truth_.crashes.find(counter);
    if (found == truth_.crashes.end()) {
        return;
    }
    const Stamp& stamp = found->second;
    const std::string where = "crash " + std::to_string(counter);
    ++verdict_.crashes.all;
    verdict_.crashes.bounded += claim.time && claim.later == 0 && claim.earlier == 0;
    // One of which the date is cut is not called exact.
    if (strictness_ == Strictness::kEverything || claim.originLater == 0) {
        CheckTime(claim, stamp, where);
    }
    if (claim.process && !claim.probably) {
        processes_[*claim.process].insert(stamp.process);
    }
    if (claim.boot && !claim.probably) {
        boots_[*claim.boot].insert(stamp.boot);
    }
    const std::pair moment(stamp.boot, stamp.monotonic);
    if (isLater && moment < lastCrash_ && strictness_ == Strictness::kEverything) {
        verdict_.Add(Fault::kOrder, where + " after later ones");
    }
    lastCrash_ = moment;
}

void Claims::Count(const Claim& claim, const Stamp& stamp) {
    Verdict::Share& share = stamp.kind == Kind::kText ? verdict_.lines : verdict_.records;
    ++share.all;
    share.bounded +=
        claim.time && claim.later == 0 && claim.earlier == 0 && claim.premise == Premise::kNothing;
    if (claim.process) {
        ++share.inProcess;
        trueClocks_[*claim.process].insert(ClockOf(stamp));
    }
    if (claim.process && !claim.probably) {
        processes_[*claim.process].insert(stamp.process);
        numbers_[stamp.process].insert(*claim.process);
    }
    if (claim.boot && !claim.bootGuessed && !claim.probably) {
        boots_[*claim.boot].insert(stamp.boot);
    }
}

void Claims::CheckTime(const Claim& claim, const Stamp& stamp, const std::string& where) {
    if (!claim.time) {
        return;
    }
    const std::int64_t slack = kSlack + std::min(truth_.dateDelay, kDateDelay);
    const auto isWithin = [&](std::int64_t wall) {
        const std::int64_t after = wall - *claim.time;
        return std::pair(claim.later >= 0 && after > claim.later * kSecond + claim.originLater + slack,
                         claim.earlier >= 0 && -after > claim.earlier * kSecond + slack);
    };
    const std::int64_t after = stamp.wall - *claim.time;
    const std::string off = where + ": shown " + std::to_string(*claim.time) + ", true " +
                            std::to_string(after) + " ns after that; later by " +
                            std::to_string(claim.later) + ", earlier by " + std::to_string(claim.earlier) +
                            ", all by " + std::to_string(claim.originLater);
    const auto [early, late] = isWithin(stamp.wall);
    if ((early || late) && strictness_ == Strictness::kEverything) {
        const auto [first, end] = truth_.clocks.equal_range(stamp.boot);
        const bool byOtherClock = std::any_of(first, end, [&](const auto& clock) {
            return isWithin(stamp.monotonic + clock.second) == std::pair(false, false);
        });
        verdict_.Add(claim.premise != Premise::kNothing && byOtherClock ? Fault::kSetClock
                     : claim.premise == Premise::kRoundsAsFound         ? Fault::kUnlikely
                     : early                                            ? Fault::kEarly
                                                                        : Fault::kLate,
                     off);
    }
    if (claim.exact && (early || late)) {
        verdict_.Add(Fault::kExact, off);
    }
}

void Claims::CheckOrder(const Claim& claim, const Stamp& stamp, const std::string& place,
                        const std::string& where) {
    Latest& latest = latest_[{place, stamp.process}];
    std::int64_t& ofThread = latest.ofThread.try_emplace(stamp.thread, INT64_MIN).first->second;
    if (stamp.monotonic < ofThread || stamp.monotonic + kStoreDelay < latest.ofProcess) {
        verdict_.Add(guessed_.contains(place)                   ? Fault::kGuess
                     : claim.premise == Premise::kRoundsAsFound ? Fault::kUnlikely
                                                                : Fault::kOrder,
                     where + " after later ones");
    }
    ofThread = std::max(ofThread, stamp.monotonic);
    latest.ofProcess = std::max(latest.ofProcess, stamp.monotonic);
}

void Claims::CheckThatAllCame() {
    for (const auto* expected : {&whole_.Lines(), &whole_.Records()}) {
        for (const std::uint64_t serial : *expected) {
            // A killed writer may have spoilt what another had stored.
            if (!told_.contains(serial) && (expected != &whole_.Records() || !truth_.damaged)) {
                verdict_.Add(Fault::kMissing, "#" + std::to_string(serial));
            }
        }
    }
    for (const std::string& calibration : whole_.Calibrations()) {
        if (!toldCalibrations_.contains(calibration)) {
            verdict_.Add(Fault::kMissing, calibration);
        }
    }
}

/// Compares what is said of each process that is one.
void Claims::CheckFacts() {
    struct Life {
        std::set<std::uint32_t> threads;
        std::pair<int, std::int64_t> first{INT_MAX, 0};
        std::pair<int, std::int64_t> last{0, 0};
    };
    std::map<int, Life> lives;
    const auto add = [&](const Stamp& stamp) {
        Life& life = lives[stamp.process];
        const std::pair moment(stamp.boot, stamp.monotonic);
        life.threads.insert(stamp.thread);
        life.first = std::min(life.first, moment);
        life.last = std::max(life.last, moment);
    };
    std::for_each(truth_.stamps.begin(), truth_.stamps.end(), add);
    for (const auto& [message, stamp] : truth_.calibrations) {
        add(stamp);
    }
    const Life* latest = nullptr;
    std::map<int, std::size_t> bootOf;
    for (const auto& [number, several] : processes_) {
        const Fact& fact = facts_.at(number - 1);
        const std::string where = "process " + std::to_string(number);
        if (several.size() > 1 || truth_.shared) {
            continue;
        }
        const Life& life = lives[*several.begin()];
        const bool isOther = std::any_of(fact.threads.begin(), fact.threads.end(), [&](std::uint32_t thread) {
            return !life.threads.contains(thread);
        });
        if (isOther && !fact.probablyOne && !fact.linesProbable && !fact.recordsProbable) {
            verdict_.Add(Fault::kThreads, where);
        }
        if (latest != nullptr && life.last < latest->first && !fact.doubtful) {
            verdict_.Add(Fault::kNumbers, where);
        }
        latest = latest == nullptr || latest->first < life.first ? &life : latest;
        if (fact.boot && !fact.doubtful) {
            const auto [known, fresh] = bootOf.try_emplace(life.first.first, *fact.boot);
            if (!fresh && known->second != *fact.boot) {
                verdict_.Add(Fault::kSplitBoot, where);
            }
        }
    }
}

void Claims::Finish() {
    for (const auto& [process, numbers] : numbers_) {
        verdict_.splits += numbers.size() > 1;
    }
    if (scope_ == Scope::kLog || strictness_ == Strictness::kOnlyExact) {
        return;
    }
    CheckThatAllCame();
    const auto addJoined = [&](const auto& trueOnes, Fault fault, const char* what) {
        for (const auto& [number, several] : trueOnes) {
            if (several.size() > 1) {
                verdict_.Add(fault, what + std::to_string(number) + " is several");
            }
        }
    };
    if (!truth_.shared) {
        addJoined(processes_, Fault::kProcesses, "process ");
    }
    addJoined(boots_, Fault::kBoots, "boot ");
    CheckFacts();
    CheckEvidence();
}

void Claims::CheckEvidence() {
    std::set<TrueClock> all;
    for (const auto& [number, clocks] : trueClocks_) {
        all.insert(clocks.begin(), clocks.end());
    }
    for (const auto& [number, evidence] : evidence_) {
        const auto own = trueClocks_.find(number);
        const auto before = trueClocks_.find(number - 1);
        if (own == trueClocks_.end() || before == trueClocks_.end()) {
            continue;
        }
        // Where there is one log, each process follows the one before it.
        const bool isOneBoot = inOneLog_ && own->second.begin()->first == before->second.rbegin()->first;
        std::set<TrueClock> clocks = inOneLog_ ? own->second : all;
        clocks.insert(before->second.begin(), before->second.end());
        const std::string what = evidence + " of process " + std::to_string(number);
        if (evidence == "uptime" && isOneBoot) {
            verdict_.Add(Fault::kProof, what);
        } else if ((evidence == "date" || evidence == "clocks") && clocks.size() == 1) {
            verdict_.Add(Fault::kStatement, what);
        }
    }
}

void Claims::AddGap(std::int64_t from, std::int64_t until, std::int64_t length) {
    const auto [before, endOfBefore] = lines_.equal_range(from);
    const auto [after, endOfAfter] = lines_.equal_range(until);
    // What is torn bears nothing to know it by.
    bool isTrue = strictness_ == Strictness::kOnlyExact || before == endOfBefore || after == endOfAfter;
    for (auto first = before; first != endOfBefore; ++first) {
        isTrue = isTrue || std::any_of(after, endOfAfter, [&](const auto& next) {
                     const Stamp& a = *first->second;
                     const Stamp& b = *next.second;
                     const std::int64_t passed = std::max(b.monotonic - a.monotonic, b.wall - a.wall);
                     return a.process == b.process && passed >= length - kStoreDelay;
                 });
    }
    if (!isTrue) {
        verdict_.Add(Fault::kStatement, "nothing was written for " + std::to_string(length) + " ns from " +
                                            std::to_string(from));
    }
}

void Claims::ClockWasSet() {
    std::map<int, TrueClock> clocks;
    const bool isTrue = std::any_of(truth_.stamps.begin(), truth_.stamps.end(), [&](const Stamp& stamp) {
        return clocks.try_emplace(stamp.process, ClockOf(stamp)).first->second != ClockOf(stamp);
    });
    if (!isTrue && strictness_ == Strictness::kEverything) {
        verdict_.Add(Fault::kStatement, "the clock was set while a process ran");
    }
}

} // namespace Simulator
