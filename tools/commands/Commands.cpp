#include "tools/commands/Commands.h"

#include "tools/base/Text.h"

#include <algorithm>
#include <iostream>
#include <iterator>
#include <utility>

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

CLI::Validator WholeNumber() {
    return CLI::Validator(
        [](const std::string& text) {
            std::uint64_t number = 0;
            return ParseNumber(text, number) ? std::string() : "\"" + text + "\" is not a whole number";
        },
        "");
}

void AddCountOption(CLI::App& command, std::uint64_t& count, const std::string& things) {
    command.add_option("--count", count, "End after N " + things + "; 0 never ends")
        ->type_name("N")
        ->check(WholeNumber());
}

void PrintFindings(Context& context, const Findings& findings) {
    context.out.Flush();
    PrintSentences("damaged: ", findings.damage);
    PrintSentences("note: ", findings.remarks);
}

int ReportUnusable(Context& context, const std::string& problem, const Findings& findings) {
    std::cerr << "nima-post: " << Printable(problem) << '\n';
    if (context.json) {
        context.out.WriteJson(Json{{"error", ToUtf8(problem)}, {"findings", FindingsJson(findings)}});
        context.out.Write("\n");
    }
    return kExitUnusable;
}

int ReportUnopened(Context& context, const std::string& problem) {
    Findings findings;
    findings.Damage("cannot-open", problem);
    return ReportUnusable(context, problem, findings);
}

int ReportUnusable(Context& context, const InputFile& file, Findings findings) {
    Findings found;
    file.ReportReadProblem(found);
    std::move(findings.damage.begin(), findings.damage.end(), std::back_inserter(found.damage));
    found.remarks = std::move(findings.remarks);
    std::string problem = file.Path() + ":";
    for (const Finding& finding : found.damage) {
        problem += ' ';
        problem += finding.sentence;
    }
    return ReportUnusable(context, problem, found);
}

} // namespace NimaPost
