#include "ctl/RingsText.h"

#include "catalogue/Marks.h"
#include "catalogue/Rings.h"

#include <cstdio>
#include <ctime>

namespace NimaCtl {

namespace {

namespace Marks = Nima::Catalogue;
using NimaPost::Output;

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

} // namespace

void WriteRings(Output& out, const RingsView& rings) {
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

} // namespace NimaCtl
