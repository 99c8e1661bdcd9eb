#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/commands/Commands.h"
#include "tools/commands/InputOptions.h"
#include "tools/fleet/Indexer.h"

#include <memory>

namespace NimaPost {

namespace {

struct IndexOptions {
    IndexTask task;
    std::string deviceFrom;
};

int PrintResult(Context& context, const std::string& database, const IndexResult& result) {
    const bool damaged = result.damagedCases > 0 || !result.findings.damage.empty();
    if (context.json) {
        PrintObject(context, {{"database", ToUtf8(database)},
                              {"cases", result.cases},
                              {"new_cases", result.newCases},
                              {"damaged_cases", result.damagedCases},
                              {"new_crashes", result.newCrashes},
                              {"findings", FindingsJson(result.findings)}});
    } else {
        std::string line = Printable(database) + ": " + Counted(result.cases, "case") + ", " +
                           std::to_string(result.newCases) + " of them new, with " +
                           Counted(result.newCrashes, "new crash");
        if (result.damagedCases > 0) {
            line +=
                "; something is damaged in " + Counted(result.damagedCases, "case") + " (the table findings)";
        }
        context.out.Line(line);
        PrintFindings(context, result.findings);
    }
    return damaged ? kExitDamaged : kExitFine;
}

int RunIndex(Context& context, IndexOptions& options) {
    std::string problem;
    if (!options.deviceFrom.empty()) {
        options.task.deviceFrom = Pattern::Compile(options.deviceFrom, false, problem);
        if (!options.task.deviceFrom) {
            return ReportUnusable(context, "--device-from: " + problem);
        }
    }
    const IndexResult result = Index(options.task, context.names);
    if (result.cases == 0) {
        if (!context.json) {
            PrintFindings(context, result.findings);
        }
        return ReportUnusable(context, "nothing found that the diagnostics library leaves behind",
                              result.findings);
    }
    return PrintResult(context, options.task.database, result);
}

} // namespace

void AddIndexCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<IndexOptions>();
    IndexTask& task = options->task;
    CLI::App* command =
        AddCommand(app, context, "index", "Many devices' folders and archives into one database");
    AddOption(*command, "FOLDER", task.paths, "Folders, archives, or folders of these").Required();
    AddOption(*command, "--db", task.database, "The database; what is new is added to one that there is")
        .Required()
        .TypeName("FILE");
    AddOption(*command, "--device-from", options->deviceFrom,
              "Takes a device's name out of its path: the first group in parentheses, or all that is found")
        .TypeName("REGEX");
    AddThreads(*command, task.threads);
    AddLimits(*command, task.limits);
    OnCall(*command, [&run, options] { run = [options](Context& c) { return RunIndex(c, *options); }; });
}

} // namespace NimaPost
