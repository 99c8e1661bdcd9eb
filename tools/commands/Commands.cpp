#include "tools/commands/Commands.h"

#include "tools/base/Text.h"

#include <iostream>

namespace NimaPost {

namespace {

void PrintSentences(std::string_view label, const std::vector<Finding>& findings) {
    for (const Finding& finding : findings) {
        std::cerr << label << Printable(finding.sentence) << '\n';
    }
}

} // namespace

CLI::App* AddCommand(CLI::App& app, Context& context, const std::string& name,
                     const std::string& description) {
    CLI::App* command = app.add_subcommand(name, description);
    command->add_flag("--json", context.json, "Write JSON instead of text");
    command->add_option("--names", context.namesFile, "Dictionary that turns numbers into words")
        ->type_name("FILE");
    return command;
}

void AddCountOption(CLI::App& command, std::uint64_t& count, const std::string& things) {
    command.add_option("--count", count, "End after N " + things + "; 0 never ends")
        ->type_name("N")
        ->check(CLI::NonNegativeNumber);
}

void PrintFindings(Context& context, const Findings& findings) {
    context.out.Flush();
    PrintSentences("damaged: ", findings.damage);
    PrintSentences("note: ", findings.remarks);
}

int ReportUnusable(Context& context, const std::string& path, const Findings& findings) {
    std::string problem = path + ":";
    for (const Finding& finding : findings.damage) {
        problem += ' ';
        problem += finding.sentence;
    }
    return ReportUnusable(context, problem);
}

int ReportUnusable(Context& context, const std::string& problem) {
    std::cerr << "nima-post: " << Printable(problem) << '\n';
    if (context.json) {
        context.out.WriteJson(Json{{"error", ToUtf8(problem)}});
        context.out.Write("\n");
    }
    return kExitUnusable;
}

} // namespace NimaPost
