#include "tools/commands/FolderCommand.h"

#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"
#include "tools/report/CrashData.h"

namespace NimaPost {

CLI::App* AddFolderCommand(CLI::App& app, Context& context, const std::string& name,
                           const std::string& description, const std::string& fileUse,
                           FolderOptions& options) {
    CLI::App* command = AddCommand(app, context, name, description);
    AddInputOptions(*command, options.input, "FOLDER", "The folder that came back from the device");
    command->add_option("-o,--output", options.output, fileUse)->required()->type_name("FILE");
    AddSelection(*command, options.selection);
    return command;
}

void AddSelection(CLI::App& command, Selection& selection) {
    command.add_option("--boot", selection.boot, "Only what is known to be of this boot")->type_name("N");
    command.add_option("--process", selection.process, "Only what is known to be of this process")
        ->type_name("N");
}

namespace {

/// "report-unit-1.html" for "report.html" and the device "unit-1".
std::string OutputOf(const std::string& output, const DeviceInput& input) {
    if (input.one) {
        return output;
    }
    std::string name;
    for (const char each : input.where) {
        const bool plain = (each >= 'a' && each <= 'z') || (each >= 'A' && each <= 'Z') ||
                           (each >= '0' && each <= '9') || each == '.' || each == '_' || each == '-';
        name += plain ? each : '-';
    }
    const std::size_t slash = output.rfind('/');
    const std::size_t point = output.rfind('.');
    const bool hasEnding = point != std::string::npos && (slash == std::string::npos || point > slash + 1);
    const std::size_t at = hasEnding ? point : output.size();
    return output.substr(0, at) + "-" + name + output.substr(at);
}

/// Findings about archives, then those about files.
Findings Joined(Findings first, const Findings& second) {
    first.damage.insert(first.damage.end(), second.damage.begin(), second.damage.end());
    first.remarks.insert(first.remarks.end(), second.remarks.begin(), second.remarks.end());
    return first;
}

int RunOnDevice(Context& context, const FolderOptions& options, const DeviceInput& input, Findings inherited,
                const std::function<FolderResult(const Story& story, Output& out)>& write) {
    Story story(context.names);
    std::string problem;
    OutputFile file;
    if (!story.Read(input.device, input.where, problem)) {
        const Findings findings = Joined(std::move(inherited), story.AllDamage());
        PrintFindings(context, findings);
        return ReportUnusable(context, problem, findings);
    }
    std::vector<FileIdentity> inputs = story.Inputs();
    inputs.insert(inputs.end(), input.inputs.begin(), input.inputs.end());
    const std::string output = OutputOf(options.output, input);
    problem = options.selection.Missing(story.Time().AllProcesses());
    if (!problem.empty() || !file.Create(output, inputs, problem)) {
        return ReportUnusable(context, problem);
    }
    const FolderResult result = write(story, file.Out());
    if (!file.Finish(problem)) {
        return ReportUnusable(context, problem);
    }
    const Findings findings = Joined(std::move(inherited), story.AllDamage());
    if (context.json) {
        Json json{{"output", ToUtf8(output)}};
        if (!input.one) {
            json["device"] = ToUtf8(input.where);
        }
        json.update(result.members);
        json["crashes"] = CrashesJson(story);
        json["findings"] = FindingsJson(findings);
        context.out.WriteJson(json);
        context.out.Write("\n");
    } else {
        context.out.Line(result.sentence + Printable(output));
        for (const std::string& line : CrashLines(story)) {
            context.out.Line("  " + line);
        }
        PrintFindings(context, findings);
    }
    return ExitCodeOf(findings);
}

} // namespace

int RunOnFolder(Context& context, const FolderOptions& options,
                const std::function<FolderResult(const Story& story, Output& out)>& write) {
    return RunOnDevices(context, options.input, false, [&](const DeviceInput& input, Findings& findings) {
        return RunOnDevice(context, options, input, findings, write);
    });
}

} // namespace NimaPost
