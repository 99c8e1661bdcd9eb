#include "catalogue/Files.h"
#include "catalogue/Marks.h"
#include "catalogue/Rings.h"
#include "ctl/RingsView.h"
#include "ctl/Verbs.h"
#include "tools/base/FileIdentity.h"
#include "tools/base/OutputFile.h"
#include "tools/base/Text.h"

#include <cstdio>
#include <ctime>
#include <memory>
#include <span>

#include <sys/stat.h>

namespace NimaCtl {

namespace {

namespace Marks = Nima::Catalogue;

/// The time as a dump of the library heads it: raw fields, and the microseconds cut to 16 bits.
void WriteHead(Output& out) {
    timespec now{};
    timespec ticks{};
    clock_gettime(CLOCK_REALTIME, &now);
    clock_gettime(CLOCK_MONOTONIC, &ticks);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char date[80];
    std::snprintf(date, sizeof(date), "%04d-%02d-%02d %02d:%02d:%02d.%03d\r\n", local.tm_year, local.tm_mon,
                  local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(static_cast<unsigned>(now.tv_nsec / 1000) & 0xFFFF));
    out.Write(std::string(Marks::kRingDumpTitle) + Marks::kHeadDate + date);
    out.Write(Marks::kHeadTicks + std::to_string(std::int64_t{ticks.tv_sec} + ticks.tv_nsec) + "\r\n");
    out.Write(std::string(Marks::kHeadFrequency) + "1000000\r\n\r\n");
}

void WriteRecord(Output& out, const RingBufferData& record) {
    char line[128];
    const auto& words = record.words;
    std::snprintf(line, sizeof(line), "%019lld 0x%8.8x 0x%8.8x : 0x%8.8x 0x%8.8x 0x%8.8x 0x%8.8x\r\n",
                  static_cast<long long>(record.timestamp), record.threadId, words[0], words[1], words[2],
                  words[3], words[4]);
    out.Write(line);
}

void WriteDump(Output& out, const RingsView& rings) {
    WriteHead(out);
    out.Write(std::string("\r\n") + Marks::kRingDumpBegin + "\r\n\r\n");
    for (std::size_t i = 0; i < RING_COUNT; ++i) {
        out.Write(std::string(Marks::kRingHeadingBegin) + std::string(Marks::kRings[i].name) +
                  Marks::kRingHeadingEnd + "\r\n");
        for (const RingBufferData& record : rings.records[i]) {
            WriteRecord(out, record);
        }
    }
    out.Write(std::string("\r\n") + Marks::kRingDumpEnd + "\r\n");
}

Json RingsJson(const RingsView& rings) {
    Json list = Json::array();
    for (std::size_t i = 0; i < RING_COUNT; ++i) {
        Json records = Json::array();
        for (const RingBufferData& record : rings.records[i]) {
            records.push_back({{"counter", record.timestamp},
                               {"thread", NimaPost::Hex32(record.threadId)},
                               {"words", record.words}});
        }
        list.push_back({{"index", i}, {"name", Marks::kRings[i].name}, {"records", std::move(records)}});
    }
    return {{"process", rings.processId}, {"missing_records", rings.missing}, {"rings", std::move(list)}};
}

int RunRings(Context& context, const std::string& path) {
    std::string problem;
    const auto rings = ReadRings(context.directory, problem);
    if (!rings) {
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
        WriteDump(out, *rings);
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
    verb->add_option("FILE", *path, "Where to; standard output by default");
    verb->callback([&run, path] { run = [path](Context& c) { return RunRings(c, *path); }; });
}

} // namespace NimaCtl
