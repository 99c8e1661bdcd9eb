#include "tools/axis/Processes.h"
#include "tools/base/Text.h"
#include "tools/commands/Commands.h"
#include "tools/commands/InputOptions.h"
#include "tools/names/EventFormat.h"
#include "tools/rings/Merge.h"
#include "tools/rings/RingText.h"
#include "tools/rings/Segment.h"
#include "tools/words/Words.h"

#include <algorithm>
#include <memory>

namespace NimaPost {

namespace {

struct Options {
    InputOptions input;
    std::vector<std::string> rings;
    std::optional<std::uint64_t> last;
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

void PrintRings(Context& context, const Options& options, const RingSet& set) {
    std::string& text = context.out.Text();
    for (const Ring& ring : set.rings) {
        const std::size_t skip =
            options.last && ring.records.size() > *options.last ? ring.records.size() - *options.last : 0;
        if (ring.records.empty()) {
            continue;
        }
        text += "\n" + ring.name + "\n";
        std::size_t process = 0;
        for (std::size_t i = skip; i < ring.records.size(); ++i) {
            if (set.processes > 1 && process != ring.records[i].process + 1U) {
                process = ring.records[i].process + 1U;
                text += ProcessInWords(process, std::nullopt) + "\n";
            }
            AppendSeconds(text, ring.records[i].elapsed);
            text += "  ";
            AppendRecord(text, ring, ring.records[i], context.names);
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

template <typename Records>
void KeepLast(Records& records, const Options& options) {
    if (options.last && records.size() > *options.last) {
        records.erase(records.begin(), records.end() - static_cast<std::ptrdiff_t>(*options.last));
    }
}

void PrintJson(Context& context, const Options& options, const InputFile& file, RingSet& set,
               const Findings& findings) {
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
        auto merged = MergeRings(set);
        KeepLast(merged, options);
        for (const MergedRecord& each : merged) {
            Json json = RecordJson(*each.ring, *each.record, context.names);
            json["before_newest_ns"] = each.time;
            document.Element(json);
        }
    } else {
        for (Ring& ring : set.rings) {
            KeepLast(ring.records, options);
            for (const RingRecord& record : ring.records) {
                document.Element(RecordJson(ring, record, context.names));
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

void AddRemarks(const RingSet& set, Findings& findings) {
    for (const Ring& ring : set.rings) {
        if (ring.seam == Seam::kUncertain) {
            findings.Remark("uncertain-seam",
                            ring.name +
                                ": nothing recorded shows for certain where its newest record meets the "
                                "oldest, or those of an earlier process.");
        }
        if (ring.clockBreaks > 0) {
            findings.Remark("clock-break", ring.name + ": the counters do not fit one run of the clock in " +
                                               Counted(ring.clockBreaks, "place") + ".");
        }
    }
}

int ShowRings(Context& context, const Options& options, const InputFile& file, Findings& findings) {
    auto set = Read(file, findings);
    if (!set) {
        return ReportUnusable(context, file, findings);
    }
    file.ReportReadProblem(findings);
    const std::string missing = KeepNamed(set->rings, options.rings);
    if (!missing.empty()) {
        return ReportUnusable(context, file.Path() + ": no ring \"" + missing + "\"");
    }
    AddRemarks(*set, findings);
    if (context.json) {
        PrintJson(context, options, file, *set, findings);
        return ExitCodeOf(findings);
    }
    PrintTable(context.out, *set);
    PrintFindings(context, findings);
    if (options.merge) {
        auto merged = MergeRings(*set);
        KeepLast(merged, options);
        PrintMerged(context, merged);
    } else {
        PrintRings(context, options, *set);
    }
    return ExitCodeOf(findings);
}

bool IsRings(std::string_view front, std::uint64_t size) {
    return LooksLikeRingText(front) || LooksLikeRingSegment(front, size);
}

int RunRings(Context& context, const Options& options) {
    return RunOnFiles(context, options.input, {"rings", IsRings},
                      [&](const InputFile& file, Findings& findings) {
                          return ShowRings(context, options, file, findings);
                      });
}

} // namespace

void AddRingsCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* command = AddCommand(app, context, "rings", "The rings: the segment, or a text dump of it");
    AddInputOptions(*command, options->input, "FILE", "The segment \"System Ring Buffers\", or a text dump");
    command->add_option("--ring", options->rings, "Only these rings, by name or index")->delimiter(',');
    command->add_flag("--merge", options->merge, "All rings in one order of time");
    command
        ->add_option("--last", options->last, "Only the last N records, of each ring or of the merged order")
        ->type_name("N")
        ->check(WholeNumber());
    command->callback([&run, options] { run = [options](Context& c) { return RunRings(c, *options); }; });
}

} // namespace NimaPost
