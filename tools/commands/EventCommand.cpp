#include "tools/base/InputFile.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/commands/Commands.h"
#include "tools/commands/InputOptions.h"
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

int ShowEvent(Context& context, const InputFile& file, Findings& findings) {
    const auto record = ReadEventRecord(file.ReadAll(kMostTextBytes), findings);
    if (!record) {
        return ReportUnusable(context, file, findings);
    }
    file.ReportReadProblem(findings);
    if (context.json) {
        PrintObject(context, RecordJson(file.Path(), *record, findings));
    } else {
        std::string line = "Event of " + Printable(record->source) + ", ";
        AppendEventRecord(line, *record);
        context.out.Line(line);
        PrintFindings(context, findings);
    }
    return ExitCodeOf(findings);
}

int RunEvent(Context& context, const InputOptions& options) {
    const auto isRecord = [](std::string_view front, std::uint64_t /*size*/) {
        return LooksLikeEventRecord(front);
    };
    return RunOnFiles(context, options, {"event record", isRecord},
                      [&](const InputFile& file, Device& /*device*/, Findings& findings) {
                          return ShowEvent(context, file, findings);
                      });
}

} // namespace

void AddEventCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<InputOptions>();
    CLI::App* command = AddCommand(app, context, "event", "A flat event record");
    AddInputOptions(*command, *options, "FILE", "The record that the host's callback received");
    OnCall(*command, [&run, options] { run = [options](Context& c) { return RunEvent(c, *options); }; });
}

} // namespace NimaPost
