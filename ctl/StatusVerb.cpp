#include "catalogue/Files.h"
#include "ctl/Activity.h"
#include "ctl/FilterText.h"
#include "ctl/Processes.h"
#include "ctl/RingsView.h"
#include "ctl/Verbs.h"
#include "tools/base/Json.h"
#include "tools/base/Process.h"
#include "tools/base/Text.h"
#include "tools/words/SetAside.h"
#include "tools/words/Words.h"

#include <cstdio>
#include <filesystem>
#include <memory>
#include <optional>
#include <system_error>

namespace NimaCtl {

namespace {

using NimaPost::Counted;

constexpr std::size_t kWritersShown = 16;

struct Block {
    std::optional<TraceBlock> block;
    std::string problem;
    Activity activity;
    MappingProcesses mapping;
    SysTraceHeader header{};
    Filters filters;
};

struct Rings {
    std::optional<RingsView> view;
    std::string problem;
    bool absent = false;
    NimaPost::ProcessState owner;
    MappingProcesses mapping;
    std::size_t used = 0; ///< rings that hold records
};

Block LookAtBlock(const Context& context, std::chrono::nanoseconds time) {
    std::string problem;
    Block look{TraceBlock::Open(context.directory, Access::kRead, problem), {}, {}, {}, {}, {}};
    look.problem = problem;
    if (look.block) {
        look.activity = Watch(*look.block, time);
        look.mapping = ProcessesThatMap(look.block->File().Number());
        look.header = look.block->CopyHeader();
        look.filters = look.block->ReadFilters();
        if (look.block->File().Lost()) {
            look.problem = look.block->File().LostText();
            look.block.reset();
        }
    }
    return look;
}

Rings LookAtRings(const Context& context) {
    Rings rings;
    rings.view = ReadRings(context.directory, rings.problem);
    std::error_code error;
    rings.absent =
        !std::filesystem::exists(context.directory + '/' + Nima::Catalogue::kRingSegment.narrow, error);
    if (rings.view) {
        rings.owner = NimaPost::StateOfProcess(rings.view->processId);
        rings.mapping = ProcessesThatMap(rings.view->file.Number());
        for (const auto& records : rings.view->records) {
            rings.used += records.empty() ? 0 : 1;
        }
    }
    return rings;
}

std::string Rounded(double value) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.0f", value);
    return text;
}

std::string RateText(const Activity& activity) {
    if (activity.cleared) {
        return "unknown: the trace was cleared meanwhile";
    }
    char time[32];
    std::snprintf(time, sizeof(time), "%.2f", activity.seconds);
    return Rounded(activity.records / activity.seconds) + " records/s, " +
           Rounded(static_cast<double>(activity.entries) / activity.seconds) + " entries/s, seen in " + time +
           " s" + (activity.estimated ? "; estimated from the last entries" : "");
}

std::string ThreadText(std::uint32_t thread, const Names& names) {
    const std::string name = names.Thread(thread);
    return NimaPost::Hex32(thread) + (name.empty() ? "" : " " + NimaPost::Printable(name));
}

void PrintWriters(Context& context, const Activity& activity) {
    context.out.Line("  writers       " + Counted(activity.writers.size(), "thread") + " in the last " +
                     Counted(activity.lastRecords, "record"));
    std::size_t shown = 0;
    for (const auto& [thread, records] : activity.writers) {
        if (++shown > kWritersShown) {
            context.out.Line("                and others");
            break;
        }
        context.out.Line("                " + ThreadText(thread, context.names) + "  " +
                         Counted(records, "record"));
    }
}

/// How often writers have gone round.
std::string OverwrittenText(const SysTraceHeader& header) {
    const std::uint32_t rounds = Rounds(header);
    return rounds < 2 ? std::string() : ", overwritten " + Counted(rounds - 1, "time");
}

void PrintBlock(Context& context, const Block& look) {
    const SysTraceHeader& header = look.header;
    const Filters& filters = look.filters;
    Output& out = context.out;
    out.Line(std::string(Nima::Catalogue::kSysTraceSegment.narrow) + " in " +
             NimaPost::Printable(context.directory));
    out.Line("  state         " + std::to_string(header.state) + " (" +
             std::string(NimaPost::CaptureStateName(header.state)) + ")");
    out.Line("  tracing       " + std::string(FilteringText(filters.State())));
    PrintFilter(out, "  filter        ", filters.live, context.names);
    if (filters.SetAside()) {
        PrintFilter(out, "  saved filter  ", filters.saved, context.names);
    }
    out.Line("  fill          " + std::to_string(UsedEntries(header)) + " of " + std::to_string(kEntries) +
             " entries" + OverwrittenText(header));
    out.Line("  rate          " + RateText(look.activity));
    PrintWriters(context, look.activity);
    out.Line("  mapped by     " + ProcessesText(look.mapping));
}

void PrintRings(Context& context, const Rings& rings) {
    Output& out = context.out;
    out.Line(std::string(Nima::Catalogue::kRingSegment.narrow));
    out.Line("  laid out by   " + std::to_string(rings.view->processId) +
             (rings.owner.lives ? " " + NimaPost::Printable(rings.owner.name) : ", which is gone"));
    out.Line("  in use        " + std::to_string(rings.used) + " of " + Counted(RING_COUNT, "ring"));
    out.Line("  mapped by     " + ProcessesText(rings.mapping));
}

Json WritersJson(const Activity& activity, const Names& names) {
    Json writers = Json::array();
    for (const auto& [thread, records] : activity.writers) {
        const std::string name = names.Thread(thread);
        writers.push_back({{"thread", NimaPost::Hex32(thread)},
                           {"name", name.empty() ? Json() : Json(NimaPost::ToUtf8(name))},
                           {"records", records}});
    }
    return writers;
}

Json RateJson(const Activity& activity) {
    Json rate{{"seconds", activity.seconds}, {"estimated", activity.estimated}};
    const auto entries = static_cast<double>(activity.entries);
    rate["records_per_second"] = activity.cleared ? Json() : Json(activity.records / activity.seconds);
    rate["entries_per_second"] = activity.cleared ? Json() : Json(entries / activity.seconds);
    return rate;
}

/// Null without a block; the findings then say why.
Json BlockJson(const Context& context, const Block& look) {
    if (!look.block) {
        return nullptr;
    }
    const SysTraceHeader& header = look.header;
    const Filters& filters = look.filters;
    return {{"state", header.state},
            {"state_name", NimaPost::CaptureStateName(header.state)},
            {"tracing", FilteringName(filters.State())},
            {"filter", FilterJson(filters.live, context.names)},
            {"saved_filter", FilterJson(filters.saved, context.names)},
            {"entries", kEntries},
            {"entries_in_use", UsedEntries(header)},
            {"write_index", header.writeIndex},
            {"wrap_count", header.wrapCount},
            {"rate", RateJson(look.activity)},
            {"writers", WritersJson(look.activity, context.names)},
            {"last_records", look.activity.lastRecords},
            {"processes", ProcessesJson(look.mapping)},
            {"hidden_processes", look.mapping.hidden}};
}

Json RingsJson(const Rings& rings) {
    if (!rings.view) {
        return nullptr;
    }
    return {{"process", rings.view->processId},
            {"lives", rings.owner.lives},
            {"rings_in_use", rings.used},
            {"missing_records", rings.view->missing},
            {"processes", ProcessesJson(rings.mapping)},
            {"hidden_processes", rings.mapping.hidden}};
}

void AddFindings(const Block& look, const Rings& rings, Findings& findings) {
    if (!look.block) {
        findings.Damage("no-block", look.problem + ".");
    } else if (const Filtering state = look.filters.State();
               state == Filtering::kCleared || state == Filtering::kPartly) {
        findings.Remark("filter-cleared",
                        SetAsideText() + NimaPost::SetAsideHint(look.activity.sinceDumpBegan,
                                                                state == Filtering::kCleared));
    }
    if (!rings.view && rings.absent) {
        // A device need not use them.
        findings.Remark("no-rings", rings.problem + ".");
    } else if (!rings.view) {
        findings.Damage("no-rings", rings.problem + ".");
    } else {
        AddMissing(*rings.view, findings);
    }
}

int RunStatus(Context& context, std::chrono::nanoseconds time) {
    context.printsOnly = true;
    const Block look = LookAtBlock(context, time);
    const Rings rings = LookAtRings(context);
    if (!look.block && !rings.view) {
        return Refuse(context, look.problem);
    }
    AddFindings(look, rings, context.findings);
    if (!context.json && look.block) {
        PrintBlock(context, look);
    }
    if (!context.json && rings.view) {
        PrintRings(context, rings);
    }
    return Finish(context, {{"directory", NimaPost::ToUtf8(context.directory)},
                            {"systrace", BlockJson(context, look)},
                            {"rings", RingsJson(rings)}});
}

} // namespace

void AddStatusVerb(CLI::App& app, Context& context, Run& run) {
    auto time = std::make_shared<std::chrono::nanoseconds>(std::chrono::milliseconds(500));
    CLI::App* verb = AddVerb(app, context, "status", "The block, its filter, its writers, and the rings");
    AddTimeOption(*verb, "--for", *time, std::chrono::nanoseconds(1),
                  "How long to count records for the rate, half a second by default");
    OnCall(*verb, [&run, time] { run = [time](Context& c) { return RunStatus(c, *time); }; });
}

} // namespace NimaCtl
