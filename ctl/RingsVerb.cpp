#include "catalogue/Files.h"
#include "catalogue/Rings.h"
#include "ctl/RingsText.h"
#include "ctl/Verbs.h"
#include "tools/base/FileIdentity.h"
#include "tools/base/Json.h"
#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"

#include <memory>
#include <span>

#include <sys/stat.h>

namespace NimaCtl {

namespace {

Json RingsJson(const RingsView& rings) {
    Json list = Json::array();
    for (std::size_t i = 0; i < RING_COUNT; ++i) {
        Json records = Json::array();
        for (const RingBufferData& record : rings.records[i]) {
            records.push_back({{"counter", record.timestamp},
                               {"thread", NimaPost::Hex32(record.threadId)},
                               {"words", record.words}});
        }
        list.push_back(
            {{"index", i}, {"name", Nima::Catalogue::kRings[i].name}, {"records", std::move(records)}});
    }
    return {{"process", rings.processId}, {"missing_records", rings.missing}, {"rings", std::move(list)}};
}

int RunRings(Context& context, const std::string& path) {
    std::string problem;
    const auto rings = ReadRings(context.directory, problem);
    if (!rings || !IsNoSegment(path, problem)) {
        return Refuse(context, problem);
    }
    struct stat status {};
    fstat(rings->file.Number(), &status);
    const NimaPost::FileIdentity input = NimaPost::IdentityOf(status);
    NimaPost::OutputFile file;
    if (!path.empty() && !file.Create(path, std::span(&input, 1), problem)) {
        return Refuse(context, problem);
    }
    Output& out = path.empty() ? context.out : file.Out();
    if (context.json) {
        out.WriteJson(RingsJson(*rings));
        out.Write("\n");
    } else {
        WriteRings(out, *rings);
    }
    if (!path.empty() && !file.Finish(problem)) {
        return Refuse(context, problem);
    }
    Findings findings;
    if (rings->missing > 0) {
        findings.Damage("file-cut", "The segment is cut: " + NimaPost::Counted(rings->missing, "record") +
                                        " are missing.");
    }
    PrintFindings(context, findings);
    return findings.damage.empty() ? kExitFine : kExitDamaged;
}

} // namespace

void AddRingsVerb(CLI::App& app, Context& context, Run& run) {
    auto path = std::make_shared<std::string>();
    CLI::App* verb = AddVerb(app, context, "rings", "A text dump of the rings, read from outside");
    AddOption(*verb, "FILE", *path, "Where to; standard output by default");
    OnCall(*verb, [&run, path] { run = [path](Context& c) { return RunRings(c, *path); }; });
}

} // namespace NimaCtl
