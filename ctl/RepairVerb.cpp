#include "ctl/FilterText.h"
#include "ctl/Processes.h"
#include "ctl/Verbs.h"
#include "ctl/block/Steering.h"
#include "tools/base/Json.h"

#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include <unistd.h>

namespace NimaCtl {

namespace {

using Clock = std::chrono::steady_clock;

struct Options {
    double wait = 10;
    bool yes = false;
};

/// Waits for as long as a dump takes. Returns false once the filter changes or is back: somebody is at work.
bool StaysTheSame(const TraceBlock& block, std::chrono::nanoseconds time) {
    const Filters before = block.ReadFilters();
    for (const auto end = Clock::now() + time; Clock::now() < end;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
        // The dump may have ended before this wait began.
        if (const Filters now = block.ReadFilters(); now != before || !now.SetAside()) {
            return false;
        }
    }
    return true;
}

/// Why a dump may be alive although nothing has moved for so long; empty if there is no reason.
std::string Doubt(const MappingProcesses& mapping) {
    for (const MappingProcess& process : mapping.processes) {
        if (IsHeldUp(process.id)) {
            return "process " + std::to_string(process.id) + " (" + process.name +
                   ") is stopped or waits for a disk, perhaps in the middle of a dump";
        }
    }
    return mapping.hidden > 0 ? "this user may not see every process" : std::string();
}

bool Agrees(const std::string& doubt) {
    if (isatty(STDIN_FILENO) == 0) {
        return false;
    }
    std::cerr << "It cannot be known whether a dump still runs: " << doubt
              << ".\nBring the filter back all the same? [y/N] ";
    std::string answer;
    std::getline(std::cin, answer);
    return answer == "y" || answer == "yes";
}

int Report(Context& context, const TraceBlock& block, bool repaired, const std::string& text) {
    const Filters filters = block.ReadFilters();
    if (context.json) {
        PrintJson(context, {{"repaired", repaired},
                            {"text", text},
                            {"tracing", FilteringName(filters.State())},
                            {"filter", FilterJson(filters.live, context.names)}});
    } else {
        context.out.Line(text);
        context.out.Line("filter  " + FilterText(filters.live, context.names));
    }
    return kExitFine;
}

int NothingToRepair(Context& context, const TraceBlock& block, const std::string& why) {
    return Report(context, block, false, "nothing to repair: " + why);
}

/// Waits for as long as a dump takes, and asks where that says nothing. Returns whether the filter may be
/// brought back; if not, with a reason.
bool MayRepair(const TraceBlock& block, const Options& options, std::string& problem) {
    const MappingProcesses mapping = ProcessesThatMap(block.File().Number());
    const bool alone = mapping.processes.empty() && mapping.hidden == 0;
    if (!alone && !StaysTheSame(block, SecondsOf(options.wait))) {
        problem = "a dump or another nima-ctl is at work; nothing was changed";
        return false;
    }
    const std::string doubt = Doubt(mapping);
    if (!doubt.empty() && !options.yes && !Agrees(doubt)) {
        problem = "it cannot be known whether a dump still runs: " + doubt +
                  "; nothing was changed. --yes brings the filter back all the same";
        return false;
    }
    return true;
}

int RunRepair(Context& context, const Options& options) {
    std::string problem;
    const auto block = TraceBlock::Open(context.directory, Access::kWrite, problem);
    if (!block) {
        return Refuse(context, problem);
    }
    if (!block->ReadFilters().SetAside()) {
        return NothingToRepair(context, *block, "no filter is set aside");
    }
    const bool may = MayRepair(*block, options, problem);
    const auto turn = may ? Turn::Take(*block, Turn::kPatience, problem) : std::nullopt;
    if (block->File().Lost()) {
        return Refuse(context, block->File().LostText());
    }
    if (!block->ReadFilters().SetAside()) {
        return NothingToRepair(context, *block, "the dump has ended");
    }
    if (!turn) {
        return Refuse(context, problem);
    }
    BringBack(*block);
    return Report(context, *block, true, "repaired: the filter that was set aside is live again");
}

} // namespace

void AddRepairVerb(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* verb = AddVerb(app, context, "repair", "Brings back a filter that a killed dump left cleared");
    AddWaitOption(*verb, options->wait, "How long a dump may take, 10 by default");
    AddFlag(*verb, "--yes", options->yes, "Do not ask where a dump may still be running");
    OnCall(*verb, [&run, options] { run = [options](Context& c) { return RunRepair(c, *options); }; });
}

} // namespace NimaCtl
