#include "ctl/Verbs.h"

#include "catalogue/Files.h"
#include "tools/base/FileIdentity.h"
#include "tools/base/FindingsJson.h"
#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/base/TimeText.h"

#include <filesystem>
#include <iostream>
#include <string_view>
#include <system_error>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

namespace NimaCtl {

namespace {

/// Those from `told` on, which then counts them all.
void PrintSentences(std::string_view label, const std::vector<NimaPost::Finding>& findings,
                    std::size_t& told) {
    for (; told < findings.size(); ++told) {
        std::cerr << label << NimaPost::Printable(findings[told].sentence) << '\n';
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

NimaPost::Argument AddOutputOption(CLI::App& verb, const std::string& names, std::string& path,
                                   const std::string& what) {
    const auto set = [&path](const std::string& text) { path = text == "-" ? "/dev/stdout" : text; };
    return AddOption(verb, names, std::function<void(const std::string&)>(set), what);
}

NimaPost::Argument AddTimeOption(CLI::App& verb, const std::string& name, std::chrono::nanoseconds& time,
                                 std::chrono::nanoseconds least, const std::string& what) {
    const auto check = [least](const std::string& text) {
        const auto parsed = NimaPost::ParseDuration(text);
        return parsed && *parsed >= least.count() && *parsed <= NimaPost::kDay
                   ? std::string()
                   : "no time \"" + text + "\": such as 30s, 500ms, 5m or 1.5, " +
                         (least.count() > 0 ? "more than nothing and " : "") + "at most a day";
    };
    const auto set = [&time](const std::string& text) {
        time = std::chrono::nanoseconds(NimaPost::ParseDuration(text).value_or(0));
    };
    return AddOption(verb, name, std::function<void(const std::string&)>(set), what)
        .TypeName("TIME")
        .Check(check);
}

void AddWaitOption(CLI::App& verb, std::chrono::nanoseconds& time, const std::string& what) {
    AddTimeOption(verb, "--wait", time, std::chrono::nanoseconds(0), what);
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

void AddBlanked(std::uint32_t slots, Findings& findings) {
    if (slots > 0) {
        findings.Remark("overwritten-slots", "Blank in the copy: " + NimaPost::Counted(slots, "slot") +
                                                 ", overwritten while the oldest were copied.");
    }
}

void TellOfFile(Context& context, const std::string& path, const std::string& text) {
    struct stat file {};
    struct stat output {};
    const bool same = stat(path.c_str(), &file) == 0 && fstat(STDOUT_FILENO, &output) == 0 &&
                      NimaPost::IdentityOf(file) == NimaPost::IdentityOf(output);
    if (!context.json && !same) {
        context.out.Line(NimaPost::Printable(path) + ": " + text);
    }
}

void Tell(Context& context) {
    if (!context.json) {
        context.out.Flush();
        PrintSentences("damaged: ", context.findings.damage, context.damageTold);
        PrintSentences("note: ", context.findings.remarks, context.remarksTold);
    }
}

Json ObjectOf(const Context& context, const Json& members) {
    Json object{{"schema", NimaPost::kJsonSchema}};
    object.update(members);
    object["findings"] = NimaPost::FindingsJson(context.findings);
    return object;
}

int Finish(Context& context, const Json& members) {
    if (context.json) {
        context.out.WriteJson(ObjectOf(context, members));
        context.out.Write("\n");
    }
    Tell(context);
    return ExitCodeOf(context);
}

int ExitCodeOf(const Context& context) {
    return context.findings.damage.empty() ? kExitFine : kExitDamaged;
}

int Refuse(Context& context, const std::string& problem) {
    Tell(context);
    std::cerr << "nima-ctl: " << NimaPost::Printable(problem) << '\n';
    if (context.json) {
        Finish(context, {{"error", NimaPost::ToUtf8(problem)}});
    }
    return kExitUnusable;
}

} // namespace NimaCtl
