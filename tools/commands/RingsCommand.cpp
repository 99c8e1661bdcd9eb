#include "tools/axis/Processes.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/commands/EventPrinter.h"
#include "tools/commands/InputOptions.h"
#include "tools/commands/SelectionTable.h"
#include "tools/commands/View.h"
#include "tools/names/EventFormat.h"
#include "tools/rings/Merge.h"
#include "tools/rings/RingText.h"
#include "tools/rings/Seam.h"
#include "tools/rings/Segment.h"
#include "tools/words/Words.h"

#include <algorithm>
#include <memory>

namespace NimaPost {

namespace {

struct RingsOptions {
    InputOptions input;
    std::vector<std::string> rings;
    SelectionOptions selection;
    bool merge = false;
};

void AppendRecord(std::string& text, const Ring& ring, const RingRecord& record, const Names& names) {
    AppendDecimal(text, record.data.timestamp);
    text += "  ";
    AppendHex32(text, record.data.threadId);
    text += "  ";
    AppendRingEvent(text, names, ring.name, record.data);
    text += '\n';
}

Json RecordJson(const Ring& ring, const RingRecord& record, const Names& names) {
    Json json{{"ring", ring.name},
              {"slot", record.slot},
              {"elapsed_ns", record.elapsed},
              {"counter", record.data.timestamp},
              {"process", record.process + 1},
              {"thread", Hex32(record.data.threadId)},
              {"words", record.data.words}};
    if (const EventName* event = names.RingEvent(ring.name, record.data.words[0])) {
        std::string text;
        AppendFormatted(text, event->format, RingArguments(event, record.data));
        json["name"] = ToUtf8(event->name);
        json["text"] = ToUtf8(text);
    }
    return json;
}

Json RingJson(const Ring& ring) {
    Json json{{"index", ring.index},
              {"name", ToUtf8(ring.name)},
              {"entries", ring.entries},
              {"used", ring.records.size()},
              {"wrapped", SeamName(ring.seam)}};
    json["oldest"] = ring.records.empty() ? Json() : Json(ring.records.front().data.timestamp);
    json["newest"] = ring.records.empty() ? Json() : Json(ring.records.back().data.timestamp);
    json["spans_at_least_ns"] = ring.records.empty() ? 0 : ring.records.back().elapsed;
    return json;
}

bool IsNamed(const Ring& ring, const std::string& name) {
    std::uint64_t index = 0;
    return EqualNoCase(name, ring.name) || (ParseNumber(name, index) && index == ring.index);
}

/// Leaves only the rings of these names. Returns the first name that no ring has, or an empty text.
std::string KeepNamed(std::vector<Ring>& rings, const std::vector<std::string>& names) {
    for (const std::string& name : names) {
        if (std::none_of(rings.begin(), rings.end(), [&](const Ring& ring) { return IsNamed(ring, name); })) {
            return name;
        }
    }
    std::erase_if(rings, [&](const Ring& ring) {
        return !names.empty() && std::none_of(names.begin(), names.end(),
                                              [&](const std::string& name) { return IsNamed(ring, name); });
    });
    return {};
}

void PrintTable(Output& out, const RingSet& set) {
    if (set.isText) {
        out.Line("Text dump of the rings");
    } else {
        out.Line("Ring segment, laid out last by process " + std::to_string(*set.processId));
    }
    if (set.date) {
        std::string line = "Written ";
        AppendWallTime(line, set.date->Earliest());
        out.Line(line + (set.ticks ? ", counter " + std::to_string(*set.ticks) : std::string()));
    }
    out.Line("ring                  used entries  wrapped   oldest        newest        spans at least");
    for (const Ring& ring : set.rings) {
        std::array<char, 160> row{};
        std::string span;
        if (ring.records.empty()) {
            std::snprintf(row.data(), row.size(), "%2u %-18.40s %5u %7u", ring.index, ring.name.c_str(), 0U,
                          ring.entries);
        } else {
            AppendSeconds(span, ring.records.back().elapsed);
            std::snprintf(row.data(), row.size(), "%2u %-18.40s %5zu %7u  %-9s %-13lld %-13lld %s s",
                          ring.index, ring.name.c_str(), ring.records.size(), ring.entries,
                          SeamName(ring.seam), static_cast<long long>(ring.records.front().data.timestamp),
                          static_cast<long long>(ring.records.back().data.timestamp), span.c_str());
        }
        out.Line(row.data());
    }
}

/// The records of a set that are selected, by their times in the order of all rings.
class Chosen {
  public:
    Chosen(const RingSet& set, Selection& selection)
        : set_(set), selection_(selection), merged_(MergeRings(set)) {
        head_ = set.date && set.ticks ? set.date->Earliest() : 0;
    }

    bool HasWall() const { return set_.date && set_.ticks; }

    bool Settle(std::string& problem) const {
        Processes processes;
        for (std::size_t i = 0; i < set_.processes; ++i) {
            processes.Add({});
        }
        Landmarks landmarks;
        landmarks.hasWall = HasWall();
        for (const MergedRecord& each : merged_) {
            landmarks.Widen(head_ + each.time);
        }
        return selection_.Settle(processes, landmarks, problem);
    }

    void Choose(const Names& names) {
        std::vector<MergedRecord> chosen;
        const MergedRecord* current = nullptr;
        SelectedEvents wanted(
            selection_, [](const TimelineEvent& /*event*/) { return true; },
            [&](const TimelineEvent& /*event*/) { chosen.push_back(*current); });
        std::string text;
        for (const MergedRecord& each : merged_) {
            current = &each;
            wanted.Take(EventOf(each, names, text));
            wanted.Finish();
        }
        merged_ = std::move(chosen);
    }

    /// Holds as long as the text.
    TimelineEvent EventOf(const MergedRecord& each, const Names& names, std::string& text) const {
        text.clear();
        AppendRingEvent(text, names, each.ring->name, each.record->data);
        TimelineEvent event;
        event.kind = EventKind::kRing;
        event.time = head_ + each.time;
        event.certainty = Certainty::Assumed();
        event.thread = each.record->data.threadId;
        event.process = each.record->process + std::size_t{1};
        event.name = each.ring->name;
        event.text = text;
        event.arguments = std::span(each.record->data.words).subspan(1);
        return event;
    }

    /// In the order of all rings.
    std::vector<MergedRecord> Merged() const {
        std::vector<MergedRecord> merged = merged_;
        KeepLast(merged);
        return merged;
    }
    /// In the order of one ring; `any` says whether it has any without regard to how many are wanted.
    std::vector<const RingRecord*> Of(const Ring& ring, bool& any) const {
        std::vector<const RingRecord*> records;
        for (const MergedRecord& each : merged_) {
            if (each.ring == &ring) {
                records.push_back(each.record);
            }
        }
        std::sort(records.begin(), records.end());
        any = !records.empty();
        KeepLast(records);
        return records;
    }

  private:
    template <typename Records>
    void KeepLast(Records& records) const {
        if (const auto& last = selection_.Last(); last && records.size() > *last) {
            records.erase(records.begin(), records.end() - static_cast<std::ptrdiff_t>(*last));
        }
    }

    const RingSet& set_;
    Selection& selection_;
    std::vector<MergedRecord> merged_;
    std::int64_t head_ = 0;
};

void PrintRings(Context& context, const RingSet& set, const Chosen& chosen) {
    std::string& text = context.out.Text();
    for (const Ring& ring : set.rings) {
        bool any = false;
        const std::vector<const RingRecord*> records = chosen.Of(ring, any);
        if (!any) {
            continue;
        }
        text += "\n" + ring.name + "\n";
        std::size_t process = 0;
        for (const RingRecord* record : records) {
            if (set.processes > 1 && process != record->process + 1U) {
                process = record->process + 1U;
                text += ProcessInWords(process, ProcessFacts()) + "\n";
            }
            AppendSeconds(text, record->elapsed);
            text += "  ";
            AppendRecord(text, ring, *record, context.names);
            context.out.Pace();
        }
    }
}

void PrintMerged(Context& context, const std::vector<MergedRecord>& merged) {
    context.out.Line(
        "\nAll rings in one order; seconds before the newest record. Each ring's newest record is assumed to "
        "be within the last second; it may be older by whole seconds.");
    std::string& text = context.out.Text();
    for (const MergedRecord& each : merged) {
        AppendSeconds(text, each.time);
        text += "  ";
        AppendPrintable(text, each.ring->name);
        text += "  ";
        AppendRecord(text, *each.ring, *each.record, context.names);
        context.out.Pace();
    }
}

/// As all that lists does: an object or a row a line.
void PrintEvents(Context& context, const InputFile& file, const Chosen& chosen) {
    EventPrinter printer(context, {file.Path()}, chosen.HasWall());
    printer.Begin();
    std::string text;
    for (const MergedRecord& each : chosen.Merged()) {
        printer.Print(chosen.EventOf(each, context.names, text), nullptr);
    }
}

void PrintJson(Context& context, const RingsOptions& options, const InputFile& file, const RingSet& set,
               const Chosen& chosen, const Findings& findings) {
    JsonDocument document(context.out);
    document.Member("file", ToUtf8(file.Path()));
    document.Member("kind", set.isText ? "text dump" : "segment");
    document.Member("process", set.processId ? Json(*set.processId) : Json());
    document.Member("written", set.date ? Json(WallTimeIso(set.date->Earliest())) : Json());
    document.Member("ticks", set.ticks ? Json(*set.ticks) : Json());
    Json processes = Json::array();
    for (std::size_t i = 1; i <= set.processes; ++i) {
        processes.push_back({{"process", i}, {"boot", Json()}});
    }
    document.Member("processes", processes);
    document.Member("findings", FindingsJson(findings));
    document.BeginArray("rings");
    for (const Ring& ring : set.rings) {
        document.Element(RingJson(ring));
    }
    document.EndArray();
    document.BeginArray("records");
    if (options.merge) {
        for (const MergedRecord& each : chosen.Merged()) {
            Json json = RecordJson(*each.ring, *each.record, context.names);
            json["before_newest_ns"] = each.time;
            document.Element(json);
        }
    } else {
        bool any = false;
        for (const Ring& ring : set.rings) {
            for (const RingRecord* record : chosen.Of(ring, any)) {
                document.Element(RecordJson(ring, *record, context.names));
            }
        }
    }
    document.EndArray();
    document.End();
}

std::optional<RingSet> Read(const InputFile& file, Findings& findings) {
    const std::string front = file.ReadAll(RING_DIRECTORY_SIZE);
    if (LooksLikeRingText(front) || HoldsRingText(front)) {
        return ReadRingText(file.ReadAll(kMostTextBytes), findings);
    }
    return ReadRingSegment(file, findings);
}

/// Rings of a folder, as `show` tells them.
int RunRingsView(Context& context, const RingsOptions& options, const DeviceInput& input,
                 Findings& findings) {
    return RunView(context, input, findings, options.selection, [&](const TimelineEvent& event) {
        return event.kind == EventKind::kRing &&
               (options.rings.empty() ||
                std::any_of(options.rings.begin(), options.rings.end(),
                            [&](const std::string& name) { return EqualNoCase(name, event.name); }));
    });
}

void PrintSet(Context& context, const RingsOptions& options, const InputFile& file, const RingSet& set,
              const Chosen& chosen, const Findings& findings) {
    if (context.format == Format::kJson) {
        PrintJson(context, options, file, set, chosen, findings);
        return;
    }
    if (context.format != Format::kText) {
        PrintFindings(context, findings);
        PrintEvents(context, file, chosen);
        return;
    }
    PrintTable(context.out, set);
    PrintFindings(context, findings);
    if (options.merge) {
        PrintMerged(context, chosen.Merged());
    } else {
        PrintRings(context, set, chosen);
    }
}

int ShowRings(Context& context, const RingsOptions& options, const InputFile& file, Findings& findings) {
    Selection selection;
    std::string problem;
    if (!selection.Prepare(options.selection, problem)) {
        return ReportUnusable(context, problem);
    }
    auto set = Read(file, findings);
    if (!set) {
        return ReportUnusable(context, file, findings);
    }
    file.ReportReadProblem(findings);
    const std::string missing = KeepNamed(set->rings, options.rings);
    if (!missing.empty()) {
        return ReportUnusable(context, file.Path() + ": no ring \"" + missing + "\"");
    }
    RemarkOnOrder(*set, findings);
    Chosen chosen(*set, selection);
    if (!chosen.Settle(problem)) {
        return ReportUnusable(context, problem);
    }
    chosen.Choose(context.names);
    for (Finding& remark : selection.Remarks()) {
        findings.remarks.push_back(std::move(remark));
    }
    PrintSet(context, options, file, *set, chosen, findings);
    return ExitCodeOf(findings);
}

int RunRings(Context& context, const RingsOptions& options) {
    return RunOnInput(
        context, options.input,
        [&](const InputFile& file, Findings& findings) {
            return ShowRings(context, options, file, findings);
        },
        [&](const DeviceInput& input, Findings& findings) {
            return RunRingsView(context, options, input, findings);
        });
}

} // namespace

void AddRingsCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<RingsOptions>();
    CLI::App* command =
        AddCommand(app, context, "rings", "The rings: the segment, or a text dump of it", Prints::kList);
    AddInputOptions(*command, options->input, "FILE", "The segment \"System Ring Buffers\", or a text dump");
    AddOption(*command, "--ring", options->rings, "Only these rings, by name or index")
        .Delimiter(',')
        .OnePerUse();
    AddFlag(*command, "--merge", options->merge, "All rings in one order of time");
    AddSelection(*command, options->selection, TakesLast::kYes);
    OnCall(*command, [&run, options] { run = [options](Context& c) { return RunRings(c, *options); }; });
}

} // namespace NimaPost
