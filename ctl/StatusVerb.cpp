#include "catalogue/Files.h"
#include "ctl/Activity.h"
#include "ctl/FilterText.h"
#include "ctl/Processes.h"
#include "ctl/RingsView.h"
#include "ctl/Verbs.h"
#include "tools/base/Json.h"
#include "tools/base/Process.h"
#include "tools/base/Text.h"
#include "tools/words/Words.h"

#include <cstdio>
#include <memory>

namespace NimaCtl {

namespace {

using NimaPost::Counted;

constexpr std::size_t kWritersShown = 16;

struct Rings {
    std::optional<RingsView> view;
    std::string problem;
    NimaPost::ProcessState owner;
    MappingProcesses mapping;
    std::size_t used = 0; ///< rings that hold records
};

Rings LookAtRings(const Context& context) {
    Rings rings;
    rings.view = ReadRings(context.directory, rings.problem);
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
           Rounded(activity.entries / activity.seconds) + " entries/s, seen in " + time + " s" +
           (activity.estimated ? "; estimated from the last entries" : "");
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

void PrintBlock(Context& context, const TraceBlock& block, const Activity& activity,
                const MappingProcesses& mapping) {
    const SysTraceHeader header = block.CopyHeader();
    const Filters filters = block.ReadFilters();
    const Filtering state = filters.State();
    const std::uint32_t used = UsedEntries(header);
    Output& out = context.out;
    out.Line(std::string(Nima::Catalogue::kSysTraceSegment.narrow) + " in " +
             NimaPost::Printable(context.directory));
    out.Line("  state         " + std::to_string(header.state) + " (" +
             std::string(NimaPost::CaptureStateName(header.state)) + ")");
    out.Line("  tracing       " + std::string(FilteringText(state)));
    out.Line("  filter        " + FilterText(filters.live, context.names));
    if (filters.SetAside()) {
        out.Line("  saved filter  " + FilterText(filters.saved, context.names));
    }
    out.Line("  fill          " + std::to_string(used) + " of " + std::to_string(kEntries) + " entries" +
             (header.wrapCount > 0 ? ", overwritten for the " + std::to_string(header.wrapCount) + ". time"
                                   : std::string()));
    out.Line("  rate          " + RateText(activity));
    PrintWriters(context, activity);
    out.Line("  mapped by     " + ProcessesText(mapping));
}

void PrintRings(Context& context, const Rings& rings) {
    Output& out = context.out;
    if (!rings.view) {
        out.Line("No rings: " + NimaPost::Printable(rings.problem));
        return;
    }
    out.Line(std::string(Nima::Catalogue::kRingSegment.narrow));
    out.Line("  laid out by   " + std::to_string(rings.view->processId) +
             (rings.owner.lives ? " " + NimaPost::Printable(rings.owner.name) : ", which is gone"));
    out.Line("  in use        " + std::to_string(rings.used) + " of " + Counted(RING_COUNT, "ring"));
    out.Line("  mapped by     " + ProcessesText(rings.mapping));
}

Json WritersJson(const Activity& activity, const Names& names) {
    Json writers = Json::array();
    for (const auto& [thread, records] : activity.writers) {
        writers.push_back({{"thread", NimaPost::Hex32(thread)},
                           {"name", NimaPost::ToUtf8(names.Thread(thread))},
                           {"records", records}});
    }
    return writers;
}

Json BlockJson(const Context& context, const TraceBlock& block, const Activity& activity,
               const MappingProcesses& mapping) {
    const SysTraceHeader header = block.CopyHeader();
    const Filters filters = block.ReadFilters();
    Json rate{{"seconds", activity.seconds}, {"estimated", activity.estimated}};
    rate["records_per_second"] = activity.cleared ? Json() : Json(activity.records / activity.seconds);
    rate["entries_per_second"] = activity.cleared ? Json() : Json(activity.entries / activity.seconds);
    return {{"state", header.state},
            {"state_name", NimaPost::CaptureStateName(header.state)},
            {"tracing", FilteringName(filters.State())},
            {"filter", FilterJson(filters.live, context.names)},
            {"saved_filter", FilterJson(filters.saved, context.names)},
            {"entries", kEntries},
            {"entries_in_use", UsedEntries(header)},
            {"write_index", header.writeIndex},
            {"wrap_count", header.wrapCount},
            {"rate", rate},
            {"writers", WritersJson(activity, context.names)},
            {"last_records", activity.lastRecords},
            {"processes", ProcessesJson(mapping)},
            {"hidden_processes", mapping.hidden}};
}

Json RingsJson(const Rings& rings) {
    if (!rings.view) {
        return {{"problem", NimaPost::ToUtf8(rings.problem)}};
    }
    return {{"process", rings.view->processId},
            {"lives", rings.owner.lives},
            {"rings_in_use", rings.used},
            {"processes", ProcessesJson(rings.mapping)},
            {"hidden_processes", rings.mapping.hidden}};
}

int RunStatus(Context& context, double seconds) {
    std::string problem;
    const auto block = TraceBlock::Open(context.directory, Access::kRead, problem);
    if (!block) {
        return Refuse(context, problem);
    }
    const Activity activity = Watch(*block, SecondsOf(seconds));
    const MappingProcesses mapping = ProcessesThatMap(block->File().Number());
    const Rings rings = LookAtRings(context);
    if (block->File().Lost()) {
        return Refuse(context, block->File().LostText());
    }
    if (context.json) {
        PrintJson(context, {{"directory", NimaPost::ToUtf8(context.directory)},
                            {"systrace", BlockJson(context, *block, activity, mapping)},
                            {"rings", RingsJson(rings)}});
    } else {
        PrintBlock(context, *block, activity, mapping);
        PrintRings(context, rings);
    }
    return kExitFine;
}

} // namespace

void AddStatusVerb(CLI::App& app, Context& context, Run& run) {
    auto seconds = std::make_shared<double>(0.5);
    CLI::App* verb = AddVerb(app, context, "status", "The block, its filter, its writers, and the rings");
    AddOption(*verb, "--for", *seconds, "How long to count records for the rate, half a second by default")
        .TypeName("SECONDS")
        .Between(0.01, 3600.0);
    OnCall(*verb, [&run, seconds] { run = [seconds](Context& c) { return RunStatus(c, *seconds); }; });
}

} // namespace NimaCtl
