#include "tools/crash/CrashSource.h"

#include "tools/rings/RingSource.h"

#include <algorithm>
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

void CrashSource::Date(Axis& axis) {
    PutInOrder();
    StateOrder(axis);
    for (auto& [file, crash] : AllHeld()) {
        if (crash.log.ticks && crash.log.date) {
            const Head head{*crash.log.ticks, *crash.log.date, crash.log.rings.Writer(),
                            crash.log.BootCycle()};
            const Tie tie = axis.TieOf(head);
            crash.time = tie.time;
            crash.process = tie.onlyWriter;
            if (tie.onlyWriter && head.thread) {
                axis.AllProcesses().TakeBootCycle(*tie.onlyWriter, head.bootCycle);
            }
            crash.certainty = {0, 0, false, tie.later};
            if (!IsOfEarlierProcess(tie, axis.Newest())) {
                axis.SetNewest(tie);
            }
            axis.SetWall();
        }
    }
}

void CrashSource::PutInOrder() {
    std::vector<CrashTraits> traits;
    for (const auto& [file, crash] : All()) {
        traits.push_back({crash.file, crash.log.BootCycle(), crash.log.ticks, SecondOf(crash)});
    }
    std::vector<Held> ordered;
    for (const OrderedCrash& each : OrderCrashes(traits)) {
        ordered.push_back(std::move(AllHeld()[each.index]));
        ordered.back().content.after = each.after;
    }
    AllHeld() = std::move(ordered);
    std::vector<std::size_t> files;
    for (const Held& held : All()) {
        files.push_back(held.file);
    }
    Set().Get<RingSource>().NoteOrder(std::move(files));
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
