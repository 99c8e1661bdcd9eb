#include "catalogue/SysTrace.h"
#include "tools/axis/Processes.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/commands/EventPrinter.h"
#include "tools/commands/InputOptions.h"
#include "tools/commands/SelectionTable.h"
#include "tools/commands/View.h"
#include "tools/systrace/RecordText.h"
#include "tools/systrace/SysTrace.h"

#include <algorithm>
#include <memory>

namespace NimaPost {

namespace {

struct SysTraceOptions {
    InputOptions input;
    std::vector<std::string> components;
    std::vector<std::string> levels;
    std::vector<std::string> threads;
    SelectionOptions selection;
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
    /// The same of a record of which only words are at hand.
    bool Admits(const TimelineEvent& event, const Names& names) const {
        const auto named = [&](const std::vector<std::uint32_t>& wanted, const auto& nameOf,
                               std::string_view name) {
            return wanted.empty() || std::any_of(wanted.begin(), wanted.end(), [&](std::uint32_t number) {
                       return nameOf(number) == name;
                   });
        };
        return named(
                   components, [&](std::uint32_t number) { return names.Component(number); }, event.name) &&
               named(
                   levels, [&](std::uint32_t number) { return names.Level(number); }, event.level) &&
               (threads.empty() ||
                (event.thread && std::find(threads.begin(), threads.end(), *event.thread) != threads.end()));
    }
};

std::string NoSuch(const std::string& kind, const std::string& text, std::uint32_t count) {
    return "no " + kind + " \"" + text + "\": a number from 0 to " + std::to_string(count - 1) +
           ", or a name of the dictionary";
}

bool MakeFilter(const SysTraceOptions& options, const Names& names, Filter& filter, std::string& problem) {
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

/// As the selection sees it. Times may be later by whole seconds.
TimelineEvent EventOf(TraceEvents& events, const SysTraceFile& trace, const SysTraceRecord& record) {
    TimelineEvent event = events.Of(trace, record);
    event.process = record.stretch + std::size_t{1};
    return event;
}

/// The indices of the records to show.
std::vector<std::uint32_t> Select(const SysTraceFile& trace, const Filter& filter, Selection& selection,
                                  const Names& names) {
    std::vector<std::uint32_t> selected;
    TraceEvents events(names);
    std::uint32_t index = 0;
    SelectedEvents wanted(
        selection, [](const TimelineEvent& /*event*/) { return true; },
        [&](const TimelineEvent& /*event*/) { selected.push_back(index); });
    for (; index < trace.records.size(); ++index) {
        if (filter.Admits(trace.records[index])) {
            wanted.Take(EventOf(events, trace, trace.records[index]));
            wanted.Finish();
        }
    }
    // Delayed writers are stored a little after their time. The sort is stable, so that equal times keep the
    // order of their slots.
    std::stable_sort(selected.begin(), selected.end(), [&](std::uint32_t a, std::uint32_t b) {
        return trace.records[a].elapsed < trace.records[b].elapsed;
    });
    if (const auto& last = selection.Last(); last && selected.size() > *last) {
        selected.erase(selected.begin(), selected.end() - static_cast<std::ptrdiff_t>(*last));
    }
    return selected;
}

/// A trace alone tells of processes, and of nothing that is dated.
bool Settle(const SysTraceFile& trace, Selection& selection, std::string& problem) {
    Processes processes;
    for (std::size_t i = 0; i < trace.stretches.size(); ++i) {
        processes.Add({});
    }
    Landmarks landmarks;
    for (const SysTraceRecord& record : trace.records) {
        landmarks.Widen(record.elapsed);
    }
    return selection.Settle(processes, landmarks, problem);
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
            out.Line(ProcessInWords(stretch, ProcessFacts()));
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

/// As all that lists does: an object or a row a line.
void PrintEvents(Context& context, const InputFile& file, const SysTraceFile& trace,
                 const std::vector<std::uint32_t>& selected, const Findings& findings) {
    PrintFindings(context, findings);
    EventPrinter printer(context, {file.Path()}, false);
    TraceEvents events(context.names);
    printer.Begin();
    for (const std::uint32_t index : selected) {
        printer.Print(EventOf(events, trace, trace.records[index]), nullptr);
    }
}

int ShowTrace(Context& context, const Filter& filter, Selection& selection, const InputFile& file,
              Findings& findings) {
    const auto trace = ReadSysTrace(file, context.names, findings);
    if (!trace) {
        return ReportUnusable(context, file, findings);
    }
    file.ReportReadProblem(findings);
    std::string problem;
    if (!Settle(*trace, selection, problem)) {
        return ReportUnusable(context, problem);
    }
    const auto selected = Select(*trace, filter, selection, context.names);
    for (Finding& remark : selection.Remarks()) {
        findings.remarks.push_back(std::move(remark));
    }
    if (context.format == Format::kJson) {
        PrintJson(context.out, file, *trace, selected, context.names, findings);
    } else if (context.format == Format::kText) {
        PrintText(context, *trace, selected, findings);
    } else {
        PrintEvents(context, file, *trace, selected, findings);
    }
    return ExitCodeOf(findings);
}

int RunSysTrace(Context& context, const SysTraceOptions& options) {
    Filter filter;
    std::string problem;
    if (!MakeFilter(options, context.names, filter, problem)) {
        return ReportUnusable(context, problem);
    }
    return RunOnInput(
        context, options.input,
        [&](const InputFile& file, Findings& findings) {
            Selection selection;
            return selection.Prepare(options.selection, problem)
                       ? ShowTrace(context, filter, selection, file, findings)
                       : ReportUnusable(context, problem);
        },
        [&](const DeviceInput& input, Findings& findings) {
            return RunView(context, input, findings, options.selection, [&](const TimelineEvent& event) {
                return event.kind == EventKind::kBinary && filter.Admits(event, context.names);
            });
        });
}

} // namespace

void AddSysTraceCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<SysTraceOptions>();
    CLI::App* command =
        AddCommand(app, context, "systrace", "The binary trace: a dump (\"SysTrace.bin\") or the segment",
                   Prints::kList);
    AddInputOptions(*command, options->input, "FILE", "The dump or the segment \"SysTrace Buffer\"");
    AddOption(*command, "--component", options->components, "Only these components, by number or name")
        .Delimiter(',')
        .OnePerUse();
    AddOption(*command, "--level", options->levels, "Only these levels, 0 to 3").Delimiter(',').OnePerUse();
    AddOption(*command, "--thread", options->threads, "Only these threads, such as 0x979fe6c0")
        .Delimiter(',')
        .OnePerUse();
    AddSelection(*command, options->selection, TakesLast::kYes);
    OnCall(*command, [&run, options] { run = [options](Context& c) { return RunSysTrace(c, *options); }; });
}

} // namespace NimaPost
