#include "tools/commands/Commands.h"

#include "tools/base/Text.h"

#include <iostream>

namespace NimaPost {

namespace {

Json StringsJson(const std::vector<std::string>& strings) {
    Json array = Json::array();
    for (const std::string& text : strings) {
        array.push_back(ToUtf8(text));
    }
    return array;
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

void PrintFindings(Output& out, const Findings& findings) {
    for (const std::string& sentence : findings.damage) {
        out.Line("damaged: " + sentence);
    }
    for (const std::string& sentence : findings.remarks) {
        out.Line("note: " + sentence);
    }
}

Json FindingsJson(const Findings& findings) {
    return {{"damage", StringsJson(findings.damage)}, {"remarks", StringsJson(findings.remarks)}};
}

int ReportUnusable(Context& context, const std::string& path, const Findings& findings) {
    std::string problem = path + ":";
    for (const std::string& sentence : findings.damage) {
        problem += ' ';
        problem += sentence;
    }
    return ReportUnusable(context, problem);
}

int ReportUnusable(Context& context, const std::string& problem) {
    std::string printable;
    AppendPrintable(printable, problem);
    std::cerr << "nima-post: " << printable << '\n';
    if (context.json) {
        context.out.WriteJson(Json{{"error", ToUtf8(problem)}});
        context.out.Write("\n");
    }
    return kExitUnusable;
}

} // namespace NimaPost
