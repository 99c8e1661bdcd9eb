#include "ctl/Verbs.h"

#include "tools/base/Text.h"

#include <iostream>
#include <string_view>
#include <vector>

namespace NimaCtl {

namespace {

constexpr double kMostSeconds = 86400;

void PrintSentences(std::string_view label, const std::vector<NimaPost::Finding>& findings) {
    for (const NimaPost::Finding& finding : findings) {
        std::cerr << label << NimaPost::Printable(finding.sentence) << '\n';
    }
}

} // namespace

CLI::App* AddVerb(CLI::App& app, Context& context, const std::string& name, const std::string& description) {
    CLI::App* verb = app.add_subcommand(name, description);
    verb->add_option("--directory", context.directory, "The device's working directory")->type_name("DIR");
    verb->add_flag("--json", context.json, "Write JSON instead of text");
    verb->add_option("--names", context.namesFile, "Dictionary that turns numbers into words")
        ->type_name("FILE");
    return verb;
}

void AddWaitOption(CLI::App& verb, double& seconds, const std::string& what) {
    verb.add_option("--wait", seconds, what)->type_name("SECONDS")->check(CLI::Range(0.0, kMostSeconds));
}

int Refuse(Context& context, const std::string& problem) {
    std::cerr << "nima-ctl: " << NimaPost::Printable(problem) << '\n';
    if (context.json) {
        PrintJson(context, {{"error", NimaPost::ToUtf8(problem)}});
    }
    return kExitUnusable;
}

void PrintFindings(Context& context, const Findings& findings) {
    context.out.Flush();
    PrintSentences("damaged: ", findings.damage);
    PrintSentences("note: ", findings.remarks);
}

void AddBlanked(std::uint32_t slots, Findings& findings) {
    if (slots > 0) {
        findings.Remark("overwritten-slots",
                        NimaPost::Counted(slots, "slot") +
                            " of the oldest were overwritten while they were copied, and "
                            "are blank.");
    }
}

void PrintJson(Context& context, const Json& json) {
    context.out.WriteJson(json);
    context.out.Write("\n");
}

} // namespace NimaCtl
