#include "tools/base/InputFile.h"
#include "tools/base/Text.h"
#include "tools/commands/Commands.h"
#include "tools/event/EventRecord.h"

#include <memory>

namespace NimaPost {

namespace {

Json RecordJson(const std::string& path, const EventRecord& record, const Findings& findings) {
    Json pairs = Json::array();
    for (const EventRecord::Pair& pair : record.pairs) {
        pairs.push_back({{"key", ToUtf8(pair.key)},
                         {"value", ToUtf8(pair.value)},
                         {"hashed", pair.hashed},
                         {"cut", pair.cut}});
    }
    return {{"file", ToUtf8(path)}, {"type", record.type},
            {"id", record.id},      {"source", ToUtf8(record.source)},
            {"pairs", pairs},       {"findings", FindingsJson(findings)}};
}

int RunEvent(Context& context, const std::string& path) {
    std::string problem;
    const auto file = InputFile::Open(path, problem);
    if (!file) {
        return ReportUnopened(context, problem);
    }
    Findings findings;
    const auto record = ReadEventRecord(file->ReadAll(kMostTextBytes), findings);
    if (!record) {
        return ReportUnusable(context, *file, findings);
    }
    file->ReportReadProblem(findings);
    if (context.json) {
        PrintObject(context, RecordJson(path, *record, findings));
    } else {
        std::string line = "Event of " + Printable(record->source) + ", ";
        AppendEventRecord(line, *record);
        context.out.Line(line);
        PrintFindings(context, findings);
    }
    return ExitCodeOf(findings);
}

} // namespace

void AddEventCommand(CLI::App& app, Context& context, Run& run) {
    auto path = std::make_shared<std::string>();
    CLI::App* command = AddCommand(app, context, "event", "A flat event record");
    command->add_option("FILE", *path, "The record that the host's callback received")->required();
    command->callback([&run, path] { run = [path](Context& c) { return RunEvent(c, *path); }; });
}

} // namespace NimaPost
