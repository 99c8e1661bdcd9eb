#include "tools/base/Json.h"
#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"
#include "tools/commands/Commands.h"
#include "tools/commands/PageText.h"
#include "tools/fleet/FleetData.h"
#include "tools/fleet/FleetPage.h"
#include "tools/fleet/Ranking.h"

#include <array>
#include <cstdio>
#include <memory>

#include <sys/stat.h>

namespace NimaPost {

namespace {

struct FleetOptions {
    std::string database;
    std::string versionFrom;
    std::string page;
};

Json FirmwareJson(const RankedSignature& signature) {
    Json shares = Json::array();
    for (const FirmwareShare& share : signature.firmware) {
        shares.push_back({{"version", share.version ? Json(*share.version) : Json()},
                          {"devices", share.devices},
                          {"crashes", share.crashes}});
    }
    return shares;
}

Json SignatureJson(const RankedSignature& signature, bool withFirmware) {
    const auto orNull = [](const std::optional<std::string>& text) { return text ? Json(*text) : Json(); };
    Json json{
        {"signature", signature.signature},
        {"devices", signature.devices},
        {"crashes", signature.crashes},
        {"first", orNull(signature.first)},
        {"last", orNull(signature.last)},
        {"example", ToUtf8(signature.example)},
        {"example_device", signature.exampleMember.empty() ? Json() : Json(ToUtf8(signature.exampleMember))}};
    if (withFirmware) {
        json["firmware"] = FirmwareJson(signature);
    }
    return json;
}

/// As `--device` asks for it where it stands in an archive.
std::string ExampleInWords(const RankedSignature& signature) {
    return Printable(signature.example) +
           (signature.exampleMember.empty() ? "" : " --device " + Printable(signature.exampleMember));
}

void PrintSignature(Context& context, const RankedSignature& signature) {
    const auto day = [](const std::optional<std::string>& time) {
        return time ? time->substr(0, time->find('T')) : std::string("-");
    };
    std::array<char, 96> row{};
    std::snprintf(row.data(), row.size(), "  %7lld  %7lld  %-10s  %-10s  ",
                  static_cast<long long>(signature.devices), static_cast<long long>(signature.crashes),
                  day(signature.first).c_str(), day(signature.last).c_str());
    context.out.Line(row.data() + Printable(signature.signature));
    context.out.Line("           see " + ExampleInWords(signature));
    std::string firmware;
    for (const FirmwareShare& share : signature.firmware) {
        firmware += (firmware.empty() ? "" : ", ") +
                    (share.version ? Printable(*share.version) : std::string("unknown")) + " on " +
                    Counted(static_cast<std::uint64_t>(share.devices), "device");
    }
    if (!firmware.empty()) {
        context.out.Line("           firmware " + firmware);
    }
}

/// What the database says, once.
struct Fleet {
    FleetTotals totals;
    std::vector<RankedSignature> ranked;
};

Json TotalsJson(const FleetTotals& totals) {
    return {{"devices", totals.devices}, {"cases", totals.cases}, {"crashes", totals.crashes}};
}

void PrintJson(Context& context, const FleetOptions& options, const Fleet& fleet) {
    Json json{{"database", ToUtf8(options.database)}};
    json.update(TotalsJson(fleet.totals));
    json["output"] = options.page.empty() ? Json() : Json(ToUtf8(options.page));
    json["signatures"] = Json::array();
    for (const RankedSignature& signature : fleet.ranked) {
        json["signatures"].push_back(SignatureJson(signature, !options.versionFrom.empty()));
    }
    json["findings"] = FindingsJson(Findings());
    PrintObject(context, json);
}

void PrintText(Context& context, const FleetOptions& options, const Fleet& fleet) {
    const auto counted = [](std::int64_t count, const char* noun) {
        return Counted(static_cast<std::uint64_t>(count), noun);
    };
    context.out.Line(Printable(options.database) + ": " + counted(fleet.totals.devices, "device") + ", " +
                     counted(fleet.totals.cases, "case") + ", " + counted(fleet.totals.crashes, "crash"));
    if (!fleet.ranked.empty()) {
        context.out.Line("  devices  crashes  first       last        signature");
    }
    for (const RankedSignature& signature : fleet.ranked) {
        PrintSignature(context, signature);
    }
    if (!options.page.empty()) {
        context.out.Line("Page in " + Printable(options.page));
    }
}

void WritePage(Output& out, const FleetOptions& options, const Database& database, const Fleet& fleet) {
    out.Write(FleetPageHead());
    out.Write("<script type=\"application/json\" id=\"data\">\n");
    WriteForPage(out, {{"tool", "nima-post " NIMA_POST_VERSION},
                       {"database", ToUtf8(options.database)},
                       {"generated", NowForPage()},
                       {"totals", TotalsJson(fleet.totals)},
                       {"signatures", SignaturesForPage(database, fleet.ranked)}});
    out.Write("\n</script>\n");
    out.Write(FleetPageTail());
}

/// False, with the reason, if it could not be written.
bool StorePage(const FleetOptions& options, const Database& database, const Fleet& fleet,
               std::string& problem) {
    struct stat status {};
    const FileIdentity own =
        stat(options.database.c_str(), &status) == 0 ? IdentityOf(status) : FileIdentity();
    OutputFile file;
    if (!file.Create(options.page, {&own, 1}, problem)) {
        return false;
    }
    WritePage(file.Out(), options, database, fleet);
    return file.Finish(problem);
}

int RunFleet(Context& context, FleetOptions options) {
    std::string problem;
    if (options.page == "-") {
        options.page = "/dev/stdout";
    }
    std::optional<Pattern> versionFrom;
    if (!options.versionFrom.empty()) {
        versionFrom = Pattern::Compile(options.versionFrom, false, problem);
        if (!versionFrom) {
            return ReportUnusable(context, "--version-from: " + problem);
        }
    }
    const Database database = Database::ForReading(options.database);
    const Fleet fleet{TotalsOf(database), RankSignatures(database, versionFrom)};
    if (!options.page.empty() && !StorePage(options, database, fleet, problem)) {
        return ReportUnusable(context, problem);
    }
    if (!options.page.empty() && IsStandardOutput(options.page)) {
        return kExitFine;
    }
    if (context.json) {
        PrintJson(context, options, fleet);
    } else {
        PrintText(context, options, fleet);
    }
    return kExitFine;
}

} // namespace

void AddFleetCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<FleetOptions>();
    CLI::App* command =
        AddCommand(app, context, "fleet", "What many devices die of, from a database of nima-post index");
    AddOption(*command, "DATABASE", options->database, "The database").Required().TypeName("FILE");
    AddOption(*command, "--version-from", options->versionFrom,
              "Takes the firmware's version out of a message: the first group in parentheses, or all that is "
              "found")
        .TypeName("REGEX");
    AddOption(*command, "--html", options->page,
              "Writes the same as a page for a browser, with more on each; - for standard output alone")
        .TypeName("FILE");
    OnCall(*command, [&run, options] { run = [options](Context& c) { return RunFleet(c, *options); }; });
}

} // namespace NimaPost
