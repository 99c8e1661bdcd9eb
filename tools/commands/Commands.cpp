#include "tools/commands/Commands.h"

#include "tools/base/Json.h"
#include "tools/base/Progress.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <array>
#include <iostream>
#include <iterator>
#include <utility>
#include <vector>

namespace NimaPost {

namespace {

/// By their numbers.
constexpr std::array kFormats{"text", "json", "jsonl", "csv", "short"};

void PrintSentences(std::string_view label, const std::vector<Finding>& findings) {
    for (const Finding& finding : findings) {
        std::cerr << label << Printable(finding.sentence) << '\n';
    }
}

} // namespace

CLI::App* AddCommand(CLI::App& app, Context& context, const std::string& name, const std::string& description,
                     Prints prints) {
    CLI::App* command = AddSubcommand(app, name, description);
    const auto set = [&context](Format format) {
        context.format = format;
        context.json = format == Format::kJson || format == Format::kJsonl;
    };
    AddFlag(
        *command, "--json", [set] { set(Format::kJson); },
        prints != Prints::kFiles ? "The same as --format json" : "Print the result as JSON");
    if (prints != Prints::kFiles) {
        std::vector<std::string> offered(kFormats.begin(), kFormats.end());
        if (prints != Prints::kList) {
            offered = {"text", "json", "jsonl"};
        }
        AddOption(
            *command, "--format",
            [set](const std::string& format) {
                const auto* const found = std::find(kFormats.begin(), kFormats.end(), format);
                set(static_cast<Format>(found - kFormats.begin()));
            },
            "How to print")
            .OneOf(offered)
            .TypeName("FORMAT");
    }
    AddOption(*command, "--color", context.colour, "Colours: auto, always or never")
        .OneOf({"auto", "always", "never"})
        .TypeName("WHEN");
    if (prints != Prints::kAsItComes) {
        AddFlag(
            *command, "--no-pager", [&context] { context.paged = false; },
            "Never show the output page by page");
    }
    BeforeOptions(*command, [&context, prints] { context.paged = prints != Prints::kAsItComes; });
    AddOption(*command, "--names", context.namesFile, "Dictionary that turns numbers into words")
        .TypeName("FILE");
    return command;
}

void PrintObject(Context& context, const Json& members) {
    Json object{{"schema", kJsonSchema}};
    object.update(members);
    context.out.WriteJson(object);
    context.out.Write("\n");
}

void AddCountOption(CLI::App& command, std::uint64_t& count, const std::string& things) {
    AddOption(command, "--count", count, "End after N " + things + "; 0 never ends")
        .TypeName("N")
        .WholeNumber();
}

void PrintFindings(Context& context, const Findings& findings) {
    context.out.Flush();
    Progress::Clear();
    PrintSentences("damaged: ", findings.damage);
    PrintSentences("note: ", findings.remarks);
}

int ReportUnusable(Context& context, const std::string& problem, const Findings& findings) {
    std::cerr << "nima-post: " << Printable(problem) << '\n';
    if (context.json) {
        PrintObject(context, Json{{"error", ToUtf8(problem)}, {"findings", FindingsJson(findings)}});
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
