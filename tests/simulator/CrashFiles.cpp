#include "tests/simulator/CrashFiles.h"

#include "catalogue/Files.h"
#include "catalogue/Marks.h"
#include "tests/simulator/TextLog.h"

#include <string>
#include <utility>

namespace Simulator {

using namespace Nima::Catalogue;

namespace {

/// The date is read before the counter.
std::string Head(World& world, const char* title) {
    const std::string date = SpacedDate(world.device.Wall());
    world.device.Hold(world.device.DateDelay());
    return title + std::string(kHeadDate) + date + "\r\n" + kHeadTicks +
           std::to_string(CounterAt(world.device.Now())) + "\r\n" + kHeadFrequency + "1000000\r\n\r\n";
}

} // namespace

void StoreRingDump(World& world, RingSegment& rings) {
    Files::File file;
    file.content = Head(world, kRingDumpTitle);
    file.content += rings.Text(file.records);
    file.modified = world.device.Wall();
    world.files.Put("rings.txt", std::move(file));
}

void StoreCrashLog(World& world, int process, RingSegment* rings, const Failure& failure,
                   const std::string& name) {
    Files::File file;
    std::string& text = file.content;
    const Stamp stamp = world.StampNow(Kind::kText, process, 0);
    text = Head(world, kCrashLogTitle);
    world.truth.crashes.emplace(CounterAt(world.device.Now()), stamp);
    text += "Error Code: " + failure.code + "\r\nFault Addr: 0\r\nCrash Type: 2\r\nExcpt Code: 0\r\n";
    text += " File Name: " + failure.file + "\r\nLine Numbr: " + std::to_string(failure.line) + "\r\n";
    text += std::string(kBootCycle) + ": " + std::to_string(failure.hasBootCycle ? world.device.Boot() : 0) +
            "\r\n\r\n";
    text +=
        std::string(kModulesSection) + "\r\n\r\n" + kCallStacksSection + "\r\n\r\n" + kRingsSection + "\r\n";
    if (rings != nullptr) {
        text += rings->Text(file.records);
    } else {
        text += std::string("\r\n") + kRingDumpBegin + "\r\n\r\n\r\n" + kRingDumpEnd + "\r\n";
    }
    text += std::string("\r\n") + kCrashLogEnd + "\r\n";
    file.modified = world.device.Wall();
    world.files.Rename(name, name + ".1");
    world.files.Put(name, std::move(file));
}

void StoreStackTrace(World& world, int process, const std::string& frames) {
    const std::string name = kStackTracePrefix + std::to_string(1000 + process) + "-";
    const std::int64_t now = world.device.Wall();
    world.files.Put(name + "1" + kStackTraceSuffix,
                    {"0x7fe142d026c8: (signalHandler+0x1d8)\n" + frames, now, {}});
    world.files.Put(name + "2" + kStackTraceSuffix,
                    {"0x7fe142d026c8: (signalHandler+0x1d8)\n0x7fe142c0a62d: (abort+0xcf)\n", now, {}});
}

} // namespace Simulator
