#include "tools/crash/CrashSource.h"

#include "tools/rings/RingProcesses.h"
#include "tools/rings/RingSource.h"

#include <algorithm>
#include <array>
#include <map>
#include <set>
#include <utility>

namespace NimaPost {

namespace {

std::optional<std::int64_t> SecondOf(const PlacedCrash& crash) {
    return crash.log.date ? std::optional(crash.log.date->second) : std::nullopt;
}

/// Whether a process that logs wrote on after a crash.
bool IsOfEarlierProcess(const Tie& crash, const std::optional<Tie>& newest) {
    return newest && newest->kind == TieKind::kLine && crash.process != newest->process &&
           crash.time < newest->time;
}

std::optional<Head> HeadOf(const PlacedCrash& crash) {
    const CrashLog& log = crash.log;
    return log.ticks && log.date
               ? std::optional(Head{*log.ticks, *log.date, log.rings.Writer(), log.BootCycle()})
               : std::nullopt;
}

} // namespace

std::optional<PlacedCrash> CrashSource::ReadContent(FolderFile& file, InputFile& input) {
    auto log = ReadCrashLog(input.ReadAll(kMostTextBytes), file.findings);
    if (!log) {
        return std::nullopt;
    }
    log->rings.date = log->date;
    log->rings.bootCycle = log->BootCycle();
    Set().Get<RingSource>().Take(file, PlacedRings(log->rings));
    PlacedCrash crash;
    crash.file = file.plainName;
    crash.log = std::move(*log);
    return crash;
}

void CrashSource::Announce(Processes& processes) const {
    // By boot cycle; of each crash log those of the process that crashed.
    std::map<std::uint64_t, std::set<std::uint32_t>> threadsOf;
    for (const auto& [file, crash] : All()) {
        if (const auto cycle = crash.log.BootCycle()) {
            threadsOf[*cycle].merge(ThreadsOf(crash.log.rings).back());
        }
    }
    Succession succession;
    for (auto& [cycle, threads] : threadsOf) {
        succession.push_back(std::move(threads));
    }
    processes.Announce(std::move(succession));
}

void CrashSource::Date(Axis& axis) {
    PutInOrder();
    StateOrder(axis);
    std::vector<std::pair<std::size_t, Tie>> heads = TieHeads(axis);
    auto head = heads.begin();
    for (auto& [file, crash] : AllHeld()) {
        if (HeadOf(crash)) {
            const Tie& tie = (head++)->second;
            crash.time = tie.time;
            crash.process = tie.onlyWriter;
            crash.byLog = tie.process.has_value();
            crash.certainty = {tie.within, tie.within, false, tie.later};
            if (!IsOfEarlierProcess(tie, axis.Newest())) {
                axis.SetNewest(tie);
            }
            axis.SetWall();
        }
    }
    Set().Get<RingSource>().NoteHeads(std::move(heads));
}

/// A process is of one boot cycle: that of the crash logs that fit its clock closely, or else at all. Where
/// these are of several cycles, none of them is of it for all that is known. One that names no cycle may be
/// of any.
std::vector<std::pair<std::size_t, Tie>> CrashSource::TieHeads(Axis& axis) const {
    using Cycles = std::set<std::pair<std::uint64_t, std::size_t>>; // The file where there is no cycle.
    const auto cycleOf = [](const Head& head, std::size_t file) {
        return head.bootCycle ? std::pair(*head.bootCycle, std::size_t{0})
                              : std::pair(std::uint64_t{0}, file);
    };
    std::map<std::size_t, std::array<Cycles, 2>> cyclesOf; // Of those that fit, and of those that do closely.
    for (const auto& [file, crash] : All()) {
        const auto head = HeadOf(crash);
        const Tie tie = head ? axis.TieOf(*head) : Tie();
        if (tie.onlyWriter) {
            auto& [any, close] = cyclesOf[*tie.onlyWriter];
            (tie.fitsClosely ? close : any).insert(cycleOf(*head, file));
        }
    }
    std::map<std::size_t, Cycles> toldOf;
    for (const auto& [process, cycles] : cyclesOf) {
        const Cycles& told = cycles[1].empty() ? cycles[0] : cycles[1];
        if (told.size() == 1) {
            const std::uint64_t cycle = told.begin()->first;
            axis.AllProcesses().TakeBootCycle(process, cycle > 0 ? std::optional(cycle) : std::nullopt);
        }
        toldOf[process] = told;
    }
    std::vector<std::pair<std::size_t, Tie>> ties;
    for (const auto& [file, crash] : All()) {
        if (const auto head = HeadOf(crash)) {
            Tie tie = axis.TieOf(*head);
            const Cycles* const told = tie.onlyWriter ? &toldOf[*tie.onlyWriter] : nullptr;
            if (told != nullptr && (told->size() > 1 || !told->contains(cycleOf(*head, file)))) {
                const auto notOf = tie.onlyWriter;
                tie = Axis::TieByDate(*head);
                tie.notOf = notOf;
            }
            ties.emplace_back(file, tie);
        }
    }
    return ties;
}

void CrashSource::PutInOrder() {
    std::vector<CrashTraits> traits;
    for (const auto& [file, crash] : All()) {
        traits.push_back({crash.file, crash.log.BootCycle(), crash.log.ticks, crash.log.date});
    }
    std::vector<Held> ordered;
    for (const OrderedCrash& each : OrderCrashes(traits)) {
        ordered.push_back(std::move(AllHeld()[each.index]));
        ordered.back().content.after = each.after;
    }
    AllHeld() = std::move(ordered);
}

/// Where dates are outweighed, somebody will wonder.
void CrashSource::StateOrder(Axis& axis) const {
    for (std::size_t i = 1; i < All().size(); ++i) {
        const PlacedCrash& before = All()[i - 1].content;
        const PlacedCrash& crash = All()[i].content;
        if (SecondOf(crash) && SecondOf(before) && SecondOf(crash) < SecondOf(before) &&
            crash.after != CrashEvidence::kNothing) {
            axis.State({"crash-order",
                        crash.file + " was written after " + before.file + ", by its " +
                            std::string(EvidenceInWords(crash.after)) +
                            ", although its date is earlier: the clock was set back, or it begins anew with "
                            "each boot."});
        }
    }
}

} // namespace NimaPost
