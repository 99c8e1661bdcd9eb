#include "catalogue/SysTrace.h"
#include "tools/axis/Processes.h"
#include "tools/base/Text.h"
#include "tools/commands/Commands.h"
#include "tools/commands/InputOptions.h"
#include "tools/systrace/RecordText.h"
#include "tools/systrace/SysTrace.h"

#include <algorithm>
#include <memory>

namespace NimaPost {

namespace {

struct Options {
    InputOptions input;
    std::vector<std::string> components;
    std::vector<std::string> levels;
    std::vector<std::string> threads;
    std::optional<std::uint64_t> last;
};

/// The records that the options ask for.
struct Filter {
    std::vector<std::uint32_t> components, levels, threads;

    bool Admits(const SysTraceRecord& record) const {
        const auto in = [](const std::vector<std::uint32_t>& wanted, std::uint32_t value) {
            return wanted.empty() || std::find(wanted.begin(), wanted.end(), value) != wanted.end();
        };
        return in(components, record.Component()) && in(levels, record.Level()) &&
               (threads.empty() || (record.hasThread && in(threads, record.thread)));
    }
};

std::string NoSuch(const std::string& kind, const std::string& text, std::uint32_t count) {
    return "no " + kind + " \"" + text + "\": a number from 0 to " + std::to_string(count - 1) +
           ", or a name of the dictionary";
}

bool MakeFilter(const Options& options, const Names& names, Filter& filter, std::string& problem) {
    for (const std::string& text : options.components) {
        const auto component = names.FindComponent(text);
        if (!component) {
            problem = NoSuch("component", text, Nima::Catalogue::kComponents);
            return false;
        }
        filter.components.push_back(*component);
    }
    for (const std::string& text : options.levels) {
        const auto level = names.FindLevel(text);
        if (!level) {
            problem = NoSuch("level", text, Nima::Catalogue::kTraceLevels);
            return false;
        }
        filter.levels.push_back(*level);
    }
    for (const std::string& text : options.threads) {
        std::uint64_t thread = 0;
        if (!ParseNumber(text, thread) || thread > 0xFFFFFFFF) {
            problem = "no thread \"" + text + "\": a number such as 0x979fe6c0";
            return false;
        }
        filter.threads.push_back(static_cast<std::uint32_t>(thread));
    }
    return true;
}

/// While a dump is being taken, the live filter and state are stored as "saved".
bool TakenUnderCapture(const SysTraceHeader& header) {
    return header.savedState != 0 && std::all_of(std::begin(header.liveFilter), std::end(header.liveFilter),
                                                 [](auto word) { return word == 0; });
}

void PrintHeader(Output& out, const SysTraceFile& trace, const Names& names) {
    const SysTraceHeader& header = trace.header;
    out.Line(std::string(trace.isDump ? "SysTrace dump" : "SysTrace segment") + ", " +
             Counted(trace.bytes, "byte"));
    out.Line("  version       " + std::to_string(header.version));
    out.Line("  state         " + std::to_string(header.state) + " (" + CaptureInWords(header, trace.isDump) +
             "), saved " + std::to_string(header.savedState) + " (" +
             std::string(CaptureStateName(header.savedState)) + ")");
    out.Line("  entries       " + std::to_string(trace.entryCount) + " of " +
             Counted(sizeof(SysTraceEntry), "byte") + ", " + std::to_string(trace.entriesRead) +
             " of them in use, write index " + Hex(header.writeIndex));
    out.Line("  wraps         " + std::to_string(header.wrapCount) +
             (header.wrapCount == -1 ? " (nothing was ever written, or it was cleared)" : ""));
    out.Line(std::string("  thread words  ") +
             ((header.flags & SYSTRACE_FLAG_THREAD_RECORDS) != 0 ? "on" : "off") + ", flags " +
             Hex(header.flags));
    out.Line("  timer words   " + Hex(header.timerWord1) + " " + Hex(header.timerWord2));
    out.Line("  live filter   " + Printable(FilterInWords(header.liveFilter, names)));
    out.Line("  saved filter  " + Printable(FilterInWords(header.savedFilter, names)));
    if (trace.isDump && TakenUnderCapture(header)) {
        out.Line("  (a dump moves the live filter to the saved one while it runs)");
    }
}

void PrintRecord(Output& out, const SysTraceFile& trace, const SysTraceRecord& record, const Names& names) {
    std::string& text = out.Text();
    AppendSeconds(text, record.elapsed);
    text += "  ";
    AppendRecord(text, trace, record, names);
    text += '\n';
    out.Pace();
}

Json HeaderJson(const SysTraceFile& trace, const Names& names) {
    const SysTraceHeader& header = trace.header;
    return {{"version", header.version},
            {"state", header.state},
            {"state_name", CaptureStateName(header.state)},
            {"tracing", TracingName(TracingOf(header, trace.isDump))},
            {"saved_state", header.savedState},
            {"saved_state_name", CaptureStateName(header.savedState)},
            {"entry_count", header.entryCount},
            {"write_index", header.writeIndex},
            {"wrap_count", header.wrapCount},
            {"flags", header.flags},
            {"thread_entries", (header.flags & SYSTRACE_FLAG_THREAD_RECORDS) != 0},
            {"timer_words", {header.timerWord1, header.timerWord2}},
            {"live_filter", FilterInWords(header.liveFilter, names)},
            {"saved_filter", FilterInWords(header.savedFilter, names)}};
}

Json CountsJson(const SysTraceFile& trace, std::uint64_t shown) {
    return {{"entries_in_use", trace.entriesRead},
            {"records", trace.records.size()},
            {"shown", shown},
            {"torn", trace.torn},
            {"entangled", trace.entangled},
            {"orphan_entries", trace.orphans},
            {"never_stored_entries", trace.neverStored},
            {"stale_entries", trace.stale},
            {"unfinished_records", trace.unfinished},
            {"cut_off_entries", trace.cutOff}};
}

Json ProcessesJson(const SysTraceFile& trace) {
    Json processes = Json::array();
    for (std::size_t i = 0; i < trace.stretches.size() && !trace.records.empty(); ++i) {
        processes.push_back(
            {{"process", i + 1}, {"boot", Json()}, {"first_slot", trace.records[trace.stretches[i]].slot}});
    }
    return processes;
}

/// The indices of the records to show.
std::vector<std::uint32_t> Select(const SysTraceFile& trace, const Filter& filter,
                                  std::optional<std::uint64_t> last) {
    std::vector<std::uint32_t> selected;
    for (std::uint32_t i = 0; i < trace.records.size(); ++i) {
        if (filter.Admits(trace.records[i])) {
            selected.push_back(i);
        }
    }
    // Delayed writers are stored a little after their time. The sort is stable, so that equal times keep the
    // order of their slots.
    std::stable_sort(selected.begin(), selected.end(), [&](std::uint32_t a, std::uint32_t b) {
        return trace.records[a].elapsed < trace.records[b].elapsed;
    });
    if (last && selected.size() > *last) {
        selected.erase(selected.begin(), selected.end() - static_cast<std::ptrdiff_t>(*last));
    }
    return selected;
}

void PrintText(Context& context, const SysTraceFile& trace, const std::vector<std::uint32_t>& selected,
               const Findings& findings) {
    Output& out = context.out;
    const Names& names = context.names;
    PrintHeader(out, trace, names);
    PrintFindings(context, findings);
    out.Line(Counted(trace.records.size(), "record") + ", " + std::to_string(selected.size()) +
             " shown; seconds since the first record, at the least");
    std::size_t stretch = 0;
    for (const std::uint32_t index : selected) {
        const SysTraceRecord& record = trace.records[index];
        if (trace.stretches.size() > 1 && stretch != record.stretch + 1U) {
            stretch = record.stretch + 1U;
            out.Line(ProcessInWords(stretch, std::nullopt));
        }
        PrintRecord(out, trace, record, names);
    }
}

void PrintJson(Output& out, const InputFile& file, const SysTraceFile& trace,
               const std::vector<std::uint32_t>& selected, const Names& names, const Findings& findings) {
    JsonDocument document(out);
    document.Member("file", ToUtf8(file.Path()));
    document.Member("kind", trace.isDump ? "dump" : "segment");
    document.Member("bytes", trace.bytes);
    document.Member("header", HeaderJson(trace, names));
    document.Member("counts", CountsJson(trace, selected.size()));
    document.Member("processes", ProcessesJson(trace));
    document.Member("findings", FindingsJson(findings));
    document.BeginArray("records");
    for (const std::uint32_t index : selected) {
        document.Element(RecordJson(trace, trace.records[index], names));
    }
    document.EndArray();
    document.End();
}

int ShowTrace(Context& context, const Options& options, const Filter& filter, const InputFile& file,
              Findings& findings) {
    const auto trace = ReadSysTrace(file, context.names, findings);
    if (!trace) {
        return ReportUnusable(context, file, findings);
    }
    file.ReportReadProblem(findings);
    const auto selected = Select(*trace, filter, options.last);
    if (context.json) {
        PrintJson(context.out, file, *trace, selected, context.names, findings);
    } else {
        PrintText(context, *trace, selected, findings);
    }
    return ExitCodeOf(findings);
}

int RunSysTrace(Context& context, const Options& options) {
    Filter filter;
    std::string problem;
    if (!MakeFilter(options, context.names, filter, problem)) {
        return ReportUnusable(context, problem);
    }
    const auto isTrace = [](std::string_view front, std::uint64_t /*size*/) {
        return LooksLikeSysTrace(front);
    };
    return RunOnFiles(context, options.input, {"binary trace", isTrace},
                      [&](const InputFile& file, Findings& findings) {
                          return ShowTrace(context, options, filter, file, findings);
                      });
}

} // namespace

void AddSysTraceCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* command =
        AddCommand(app, context, "systrace", "The binary trace: a dump (\"SysTrace.bin\") or the segment");
    AddInputOptions(*command, options->input, "FILE", "The dump or the segment \"SysTrace Buffer\"");
    command->add_option("--component", options->components, "Only these components, by number or name")
        ->delimiter(',');
    command->add_option("--level", options->levels, "Only these levels, 0 to 3")->delimiter(',');
    command->add_option("--thread", options->threads, "Only these threads, such as 0x979fe6c0")
        ->delimiter(',');
    command->add_option("--last", options->last, "Only the last N of them")
        ->type_name("N")
        ->check(WholeNumber());
    command->callback([&run, options] { run = [options](Context& c) { return RunSysTrace(c, *options); }; });
}

} // namespace NimaPost
