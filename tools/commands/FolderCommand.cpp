#include "tools/commands/FolderCommand.h"

#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"
#include "tools/commands/SelectionTable.h"
#include "tools/commands/View.h"
#include "tools/report/CrashData.h"
#include "tools/story/MergedStory.h"

namespace NimaPost {

CLI::App* AddFolderCommand(CLI::App& app, Context& context, const std::string& name,
                           const std::string& description, const std::string& fileUse,
                           FolderOptions& options) {
    CLI::App* command = AddCommand(app, context, name, description);
    command->add_option("FOLDER", options.folder, "The folder that came back from the device")->required();
    command->add_option("-o,--output", options.output, fileUse)->required()->type_name("FILE");
    AddSelection(*command, options.selection, TakesLast::kNo);
    return command;
}

int RunOnFolder(
    Context& context, const FolderOptions& options,
    const std::function<FolderResult(const Story& story, Selection& selection, Output& out)>& write) {
    Story story(context.names);
    Selection selection;
    std::string problem;
    OutputFile file;
    if (!selection.Prepare(options.selection, problem)) {
        return ReportUnusable(context, problem);
    }
    if (!ReadStory(context, story, options.folder)) {
        return kExitUnusable;
    }
    if (!selection.Settle(story.Time().AllProcesses(), LandmarksOf(story, selection.NeedsEnds()), problem) ||
        !file.Create(options.output, story.Inputs(), problem)) {
        return ReportUnusable(context, problem);
    }
    const FolderResult result = write(story, selection, file.Out());
    if (!file.Finish(problem)) {
        return ReportUnusable(context, problem);
    }
    Findings findings = result.findings;
    const Findings damage = story.AllDamage();
    findings.damage.insert(findings.damage.begin(), damage.damage.begin(), damage.damage.end());
    for (Finding& remark : selection.Remarks()) {
        findings.remarks.push_back(std::move(remark));
    }
    if (context.json) {
        Json json{{"output", ToUtf8(options.output)}};
        json.update(result.members);
        json["crashes"] = CrashesJson(story);
        json["findings"] = FindingsJson(findings);
        PrintObject(context, json);
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
