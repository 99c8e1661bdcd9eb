#include "tools/commands/FolderCommand.h"

#include "tools/base/GzipWriter.h"
#include "tools/base/Json.h"
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
    AddInputOptions(*command, options.input, "FOLDER", "The folder that came back from the device");
    AddOption(*command, "-o,--output", options.output, fileUse).Required().TypeName("FILE");
    AddSelection(*command, options.selection, TakesLast::kNo);
    return command;
}

namespace {

using Write = std::function<FolderResult(const Story& story, Selection& selection, Output& out)>;

constexpr std::string_view kGzipEnding = ".gz";

bool IsPacked(const std::string& output) {
    return output.ends_with(kGzipEnding);
}

/// What must not be written over; a file that such a command has written may be.
std::vector<FileIdentity> InputsOf(const Story& story, const DeviceInput& input) {
    std::vector<FileIdentity> inputs = story.Inputs();
    inputs.insert(inputs.end(), input.inputs.begin(), input.inputs.end());
    for (const FolderFile& file : story.Files()) {
        if (file.ownOutput) {
            std::erase(inputs, file.identity);
        }
    }
    return inputs;
}

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
    const std::size_t end = output.size() - (IsPacked(output) ? kGzipEnding.size() : 0);
    const std::size_t point = output.substr(0, end).rfind('.');
    const bool hasEnding = point != std::string::npos && (slash == std::string::npos || point > slash + 1);
    const std::size_t at = hasEnding ? point : end;
    return output.substr(0, at) + "-" + name + output.substr(at);
}

constexpr const char* kStandardOutput = "/dev/stdout";

void PrintResult(Context& context, const Story& story, const DeviceInput& input, const std::string& output,
                 const FolderResult& result, const Findings& findings) {
    if (!context.json) {
        context.out.Line(result.sentence + Printable(output));
        for (const std::string& line : CrashLines(story)) {
            context.out.Line("  " + line);
        }
        PrintFindings(context, findings);
        return;
    }
    Json json{{"output", ToUtf8(output)}};
    if (!input.one) {
        json["device"] = ToUtf8(input.where);
    }
    json.update(result.members);
    json["crashes"] = CrashesJson(story);
    json["findings"] = FindingsJson(findings);
    PrintObject(context, json);
}

int RunOnDevice(Context& context, const FolderOptions& options, const DeviceInput& input,
                const Findings& inherited, const Write& write) {
    Story story(context.names);
    Selection selection;
    std::string problem;
    OutputFile file;
    if (!selection.Prepare(options.selection, problem)) {
        return ReportUnusable(context, problem);
    }
    if (!ReadStory(context, story, input, inherited)) {
        return kExitUnusable;
    }
    const std::string output = OutputOf(options.output, input);
    const bool printed = IsStandardOutput(output);
    if (!selection.Settle(story.Time().AllProcesses(), LandmarksOf(story, selection.NeedsEnds()), problem) ||
        !file.Create(output, InputsOf(story, input), problem, IsPacked(output) ? MakeGzipWriter : nullptr)) {
        return ReportUnusable(context, problem);
    }
    const FolderResult result = write(story, selection, file.Out());
    if (!file.Finish(problem)) {
        return ReportUnusable(context, problem);
    }
    Findings findings = Joined(Joined(inherited, story.AllDamage()), result.findings);
    for (Finding& remark : selection.Remarks()) {
        findings.remarks.push_back(std::move(remark));
    }
    if (printed) {
        PrintFindings(context, findings);
    } else {
        PrintResult(context, story, input, output, result, findings);
    }
    return ExitCodeOf(findings);
}

} // namespace

int RunOnFolder(
    Context& context, const FolderOptions& options,
    const std::function<FolderResult(const Story& story, Selection& selection, Output& out)>& write) {
    FolderOptions named = options;
    if (named.output == "-") {
        named.output = kStandardOutput;
    }
    return RunOnDevices(context, named.input, false, [&](const DeviceInput& input, Findings& findings) {
        if (!input.one && IsStandardOutput(named.output)) {
            return ReportUnusable(context, input.where +
                                               ": one of several devices; --device names the one "
                                               "that goes to standard output");
        }
        return RunOnDevice(context, named, input, findings, write);
    });
}

} // namespace NimaPost
