#include "tools/base/Json.h"
#include "tools/base/Text.h"
#include "tools/commands/Commands.h"
#include "tools/fleet/Ranking.h"

#include <array>
#include <cstdio>
#include <memory>

namespace NimaPost {

namespace {

struct Options {
    std::string database;
    std::string versionFrom;
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

int RunFleet(Context& context, const Options& options) {
    std::string problem;
    std::optional<Pattern> versionFrom;
    if (!options.versionFrom.empty()) {
        versionFrom = Pattern::Compile(options.versionFrom, false, problem);
        if (!versionFrom) {
            return ReportUnusable(context, "--version-from: " + problem);
        }
    }
    const Database database = Database::ForReading(options.database);
    const FleetTotals totals = TotalsOf(database);
    const std::vector<RankedSignature> ranked = RankSignatures(database, versionFrom);
    if (context.json) {
        Json signatures = Json::array();
        for (const RankedSignature& signature : ranked) {
            signatures.push_back(SignatureJson(signature, versionFrom.has_value()));
        }
        PrintObject(context, {{"database", ToUtf8(options.database)},
                              {"devices", totals.devices},
                              {"cases", totals.cases},
                              {"crashes", totals.crashes},
                              {"signatures", std::move(signatures)},
                              {"findings", FindingsJson(Findings())}});
        return kExitFine;
    }
    context.out.Line(Printable(options.database) + ": " +
                     Counted(static_cast<std::uint64_t>(totals.devices), "device") + ", " +
                     Counted(static_cast<std::uint64_t>(totals.cases), "case") + ", " +
                     std::to_string(totals.crashes) + (totals.crashes == 1 ? " crash" : " crashes"));
    if (!ranked.empty()) {
        context.out.Line("  devices  crashes  first       last        signature");
    }
    for (const RankedSignature& signature : ranked) {
        PrintSignature(context, signature);
    }
    return kExitFine;
}

} // namespace

void AddFleetCommand(CLI::App& app, Context& context, Run& run) {
    auto options = std::make_shared<Options>();
    CLI::App* command =
        AddCommand(app, context, "fleet", "What many devices die of, from a database of nima-post index");
    AddOption(*command, "DATABASE", options->database, "The database").Required().TypeName("FILE");
    AddOption(*command, "--version-from", options->versionFrom,
              "Takes the firmware's version out of a message: the first group in parentheses, or all that is "
              "found")
        .TypeName("REGEX");
    OnCall(*command, [&run, options] { run = [options](Context& c) { return RunFleet(c, *options); }; });
}

} // namespace NimaPost
