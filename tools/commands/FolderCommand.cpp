#include "tools/commands/FolderCommand.h"

#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"
#include "tools/report/CrashData.h"

namespace NimaPost {

CLI::App* AddFolderCommand(CLI::App& app, Context& context, const std::string& name,
                           const std::string& description, const std::string& fileUse,
                           FolderOptions& options) {
    CLI::App* command = AddCommand(app, context, name, description);
    command->add_option("FOLDER", options.folder, "The folder that came back from the device")->required();
    command->add_option("-o,--output", options.output, fileUse)->required()->type_name("FILE");
    AddSelection(*command, options.selection);
    return command;
}

void AddSelection(CLI::App& command, Selection& selection) {
    command.add_option("--boot", selection.boot, "Only what is known to be of this boot")->type_name("N");
    command.add_option("--process", selection.process, "Only what is known to be of this process")
        ->type_name("N");
}

int RunOnFolder(Context& context, const FolderOptions& options,
                const std::function<FolderResult(const Story& story, Output& out)>& write) {
    Story story(context.names);
    std::string problem;
    OutputFile file;
    if (!story.Read(options.folder, problem)) {
        const Findings findings = story.AllDamage();
        PrintFindings(context, findings);
        return ReportUnusable(context, problem, findings);
    }
    problem = options.selection.Missing(story.Time().AllProcesses());
    if (!problem.empty() || !file.Create(options.output, story.Inputs(), problem)) {
        return ReportUnusable(context, problem);
    }
    const FolderResult result = write(story, file.Out());
    if (!file.Finish(problem)) {
        return ReportUnusable(context, problem);
    }
    Findings findings = result.findings;
    const Findings damage = story.AllDamage();
    findings.damage.insert(findings.damage.begin(), damage.damage.begin(), damage.damage.end());
    if (context.json) {
        Json json{{"output", ToUtf8(options.output)}};
        json.update(result.members);
        json["crashes"] = CrashesJson(story);
        json["findings"] = FindingsJson(findings);
        context.out.WriteJson(json);
        context.out.Write("\n");
    } else {
        context.out.Line(result.sentence + Printable(options.output));
        for (const std::string& line : CrashLines(story)) {
            context.out.Line("  " + line);
        }
        PrintFindings(context, findings);
    }
    return ExitCodeOf(findings);
}

} // namespace NimaPost
