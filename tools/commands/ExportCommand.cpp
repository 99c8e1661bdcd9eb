#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/commands/Commands.h"
#include "tools/commands/InputOptions.h"
#include "tools/fleet/export/Exporter.h"

#include <memory>

namespace NimaPost {

namespace {

struct ExportOptions {
    ExportTask task;
    std::string form{NameOf(TableForm::kJsonl)};
    std::string deviceFrom;
};

int PrintResult(Context& context, const std::string& folder, const ExportResult& result) {
    if (context.json) {
        PrintObject(context, {{"folder", ToUtf8(folder)},
                              {"cases", result.cases},
                              {"damaged_cases", result.damagedCases},
                              {"events", result.events},
                              {"crashes", result.crashes},
                              {"files", result.files},
                              {"findings", FindingsJson(result.findings)}});
    } else {
        context.out.Line(Printable(folder) + ": " + Counted(result.events, "event") + " and " +
                         Counted(result.crashes, "crash") + " of " + Counted(result.cases, "case") + " in " +
                         Counted(result.files, "file"));
        PrintFindings(context, result.findings);
    }
    return result.damagedCases > 0 ? kExitDamaged : ExitCodeOf(result.findings);
}

int RunExport(Context& context, ExportOptions& options) {
    std::string problem;
    ExportTask& task = options.task;
    task.form = options.form == NameOf(TableForm::kCsv) ? TableForm::kCsv : TableForm::kJsonl;
    if (!options.deviceFrom.empty()) {
        task.deviceFrom = Pattern::Compile(options.deviceFrom, false, problem);
        if (!task.deviceFrom) {
            return ReportUnusable(context, "--device-from: " + problem);
        }
    }
    ExportResult result;
    if (!Export(task, context.names, result, problem)) {
        return ReportUnusable(context, problem, result.findings);
    }
    if (result.cases == 0) {
        if (!context.json) {
            PrintFindings(context, result.findings);
        }
        return ReportUnusable(context, "nothing found that the diagnostics library leaves behind",
                              result.findings);
    }
    return PrintResult(context, task.folder, result);
}

} // namespace

void AddExportCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<ExportOptions>();
    ExportTask& task = options->task;
    CLI::App* command = AddCommand(
        app, context, "export", "Many devices' folders and archives as tables for databases", Prints::kFiles);
    AddOption(*command, "FOLDER", task.paths, "Folders, archives, or folders of these").Required();
    AddOption(*command, "--to", task.folder,
              "Folder for the tables: a new one, or one with an earlier export")
        .Required()
        .TypeName("DIR");
    AddOption(*command, "--format", options->form, "Form of the tables: jsonl or csv")
        .OneOf({"jsonl", "csv"})
        .TypeName("FORMAT");
    AddOption(*command, "--device-from", options->deviceFrom,
              "Takes a device's name out of its path: the first group in parentheses, or all that is found")
        .TypeName("REGEX");
    AddThreads(*command, task.threads);
    AddLimits(*command, task.limits);
    OnCall(*command, [&run, options] { run = [options](Context& c) { return RunExport(c, *options); }; });
}

} // namespace NimaPost
