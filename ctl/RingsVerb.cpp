#include "catalogue/Files.h"
#include "catalogue/Rings.h"
#include "ctl/RingsText.h"
#include "ctl/Verbs.h"
#include "tools/base/FileIdentity.h"
#include "tools/base/Interrupt.h"
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

void Write(Context& context, Output& out, const RingsView& rings) {
    if (context.json) {
        out.WriteJson(ObjectOf(context, RingsJson(rings)));
        out.Write("\n");
    } else {
        WriteRings(out, rings);
    }
}

/// Returns false, with a reason and all files as they were, if that cannot be done.
bool WriteFile(Context& context, const std::string& path, const RingsView& rings, std::string& problem) {
    // From here on a signal removes what has been begun.
    const NimaPost::Interrupt interrupt;
    struct stat status {};
    fstat(rings.file.Number(), &status);
    const NimaPost::FileIdentity input = NimaPost::IdentityOf(status);
    NimaPost::OutputFile file;
    if (!file.Create(path, std::span(&input, 1), problem)) {
        return false;
    }
    Write(context, file.Out(), rings);
    file.Out().Flush();
    if (interrupt.Requested()) {
        problem = "interrupted; " + path + " was not written";
        return false;
    }
    return file.Finish(problem);
}

int RunRings(Context& context, const std::string& path) {
    context.printsOnly = path.empty();
    std::string problem;
    const auto rings = ReadRings(context.directory, problem);
    if (!rings || !IsNoSegment(path, problem)) {
        return Refuse(context, problem);
    }
    AddMissing(*rings, context.findings);
    if (path.empty()) {
        Write(context, context.out, *rings);
    } else if (!WriteFile(context, path, *rings, problem)) {
        return Refuse(context, problem);
    }
    Tell(context);
    return ExitCodeOf(context);
}

} // namespace

void AddRingsVerb(CLI::App& app, Context& context, Run& run) {
    auto path = std::make_shared<std::string>();
    CLI::App* verb = AddVerb(app, context, "rings", "A text dump of the rings, read from outside");
    AddOutputOption(*verb, "FILE", *path, "Where to; standard output by default");
    OnCall(*verb, [&run, path] { run = [path](Context& c) { return RunRings(c, *path); }; });
}

} // namespace NimaCtl
