#include "ctl/Verbs.h"

#include "catalogue/Files.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"

#include <filesystem>
#include <iostream>
#include <string_view>
#include <system_error>
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
    CLI::App* verb = NimaPost::AddSubcommand(app, name, description);
    AddOption(*verb, "--directory", context.directory, "The device's working directory").TypeName("DIR");
    AddFlag(*verb, "--json", context.json, "Write JSON instead of text");
    AddOption(*verb, "--names", context.namesFile, "Dictionary that turns numbers into words")
        .TypeName("FILE");
    return verb;
}

bool IsNoSegment(const std::string& path, std::string& problem) {
    std::error_code error;
    const std::filesystem::path place(path);
    const std::filesystem::path target = std::filesystem::weakly_canonical(place, error);
    for (const std::string name :
         {Nima::Catalogue::kSysTraceSegment.narrow, Nima::Catalogue::kRingSegment.narrow}) {
        if (place.filename() == name || target.filename() == name) {
            problem = path + ": this is where a segment of the library is";
            return false;
        }
    }
    return true;
}

void AddWaitOption(CLI::App& verb, double& seconds, const std::string& what) {
    AddOption(verb, "--wait", seconds, what).TypeName("SECONDS").Between(0.0, kMostSeconds);
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
