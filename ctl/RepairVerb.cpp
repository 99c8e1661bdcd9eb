#include "ctl/FilterText.h"
#include "ctl/Processes.h"
#include "ctl/Verbs.h"
#include "ctl/block/Steering.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"

#include <cstdio>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

#include <unistd.h>

namespace NimaCtl {

namespace {

using Clock = std::chrono::steady_clock;

struct RepairOptions {
    std::chrono::nanoseconds wait{kUsualWait};
    bool yes = false;
};

/// What changes while somebody is at work. Where one dump follows another at once, the filter may be back too
/// briefly to be seen; but then something is traced, the end of the dump for example, and while nothing gets
/// through, nothing else is.
struct Signs {
    Filters filters;
    std::uint32_t traced = 0; ///< the write index, while nothing gets through

    explicit Signs(const TraceBlock& block)
        : filters(block.ReadFilters()),
          traced(filters.State() == Filtering::kCleared ? Load(block.Header().writeIndex) : 0) {}
    bool operator==(const Signs&) const = default;
};

/// Waits for as long as a dump takes. Returns false at the first sign that somebody is at work.
bool StaysTheSame(const TraceBlock& block, const Signs& before, std::chrono::nanoseconds time) {
    for (const auto end = Clock::now() + time; Clock::now() < end;) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
        if (Signs(block) != before) {
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
    return NimaPost::EqualNoCase(answer, "y") || NimaPost::EqualNoCase(answer, "yes");
}

int Report(Context& context, const TraceBlock& block, const Filters& before, bool repaired,
           const std::string& text) {
    const Filters after = block.ReadFilters();
    if (!context.json) {
        context.out.Line(text);
        PrintFilters(context.out, "before  ", before, context.names);
        PrintFilters(context.out, "after   ", after, context.names);
    }
    return Finish(context, {{"repaired", repaired},
                            {"text", text},
                            {"tracing", FilteringName(after.State())},
                            {"before", FiltersJson(before, context.names)},
                            {"after", FiltersJson(after, context.names)}});
}

constexpr const char* kAtWork = "a dump or another nima-ctl is at work; nothing was changed";

/// Waits for as long as a dump takes, and asks where that says nothing. Returns whether the filter may be
/// brought back; if not, with a reason.
bool MayRepair(const TraceBlock& block, const Signs& first, const RepairOptions& options,
               std::string& problem) {
    const MappingProcesses mapping = ProcessesThatMap(block.File().Number());
    const bool alone = mapping.processes.empty() && mapping.hidden == 0;
    if (!alone && !StaysTheSame(block, first, options.wait)) {
        problem = kAtWork;
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

int RunRepair(Context& context, const RepairOptions& options) {
    std::string problem;
    const auto block = TraceBlock::Open(context.directory, Access::kWrite, problem);
    if (!block) {
        return Refuse(context, problem);
    }
    const Signs first(*block);
    const Filters& before = first.filters;
    if (!before.SetAside()) {
        return Report(context, *block, before, false, "nothing to repair: no filter is set aside");
    }
    const bool may = MayRepair(*block, first, options, problem);
    const auto turn = may ? Turn::Take(*block, Turn::kPatience, problem) : std::nullopt;
    if (block->File().Lost()) {
        return Refuse(context, block->File().LostText());
    }
    // The question and the turn may have taken long.
    const Signs now(*block);
    if (!now.filters.SetAside()) {
        return Report(context, *block, before, false, "nothing to repair: the dump has ended");
    }
    if (!turn || now != first) {
        return Refuse(context, turn ? kAtWork : problem);
    }
    BringBack(*block);
    return Report(context, *block, before, true, "repaired: the filter that was set aside is live again");
}

} // namespace

void AddRepairVerb(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<RepairOptions>();
    CLI::App* verb = AddVerb(app, context, "repair", "Brings back a filter that a killed dump left cleared");
    AddWaitOption(*verb, options->wait, "How long a dump may take, 10 by default");
    AddFlag(*verb, "--yes", options->yes, "Do not ask where a dump may still be running");
    OnCall(*verb, [&run, options] { run = [options](Context& c) { return RunRepair(c, *options); }; });
}

} // namespace NimaCtl
