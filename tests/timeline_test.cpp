// The timeline as a Perfetto trace, taken apart by a decoder of the test's own and held to the JSON form.

#include "tests/support/Perfetto.h"
#include "tests/support/Post.h"
#include "tests/support/Sandbox.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include <Diagnostics/Formats.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>

using namespace Nima::Common::System::OS::Diagnostics;
using namespace Nima::Testing;

namespace {

class Timeline : public Sandbox {};

/// What a Chrome trace holds, in the form of a `PerfettoReading`.
struct ChromeReading {
    std::vector<Json> instants;
    std::map<std::string, std::vector<std::pair<std::int64_t, std::uint64_t>>> counters;

    /// Times are `shift` nanoseconds later than in the file.
    ChromeReading(const Json& trace, std::int64_t shift) {
        std::map<std::pair<int, int>, std::string> threads;
        std::map<int, std::string> processes;
        for (const Json& event : trace["traceEvents"]) {
            if (event["name"] == "thread_name") {
                threads[{event["pid"], event["tid"]}] = event["args"]["name"];
            } else if (event["name"] == "process_name") {
                processes[event["pid"]] = event["args"]["name"];
            }
        }
        for (const Json& event : trace["traceEvents"]) {
            if (event["ph"] == "M") {
                continue;
            }
            const std::int64_t time = shift + std::llround(event["ts"].get<double>() * 1000);
            if (event["ph"] == "C") {
                for (const auto& [lane, count] : event["args"].items()) {
                    counters[lane + " per second"].emplace_back(time, count);
                }
                continue;
            }
            Json arguments = event["args"];
            const bool isCrash = event["cat"] == "crash";
            if (isCrash) {
                arguments["file"] = arguments["files"].back();
                arguments.erase("files");
            }
            for (const char* name : {"boot", "process"}) {
                if (arguments[name].is_null()) {
                    arguments.erase(name);
                }
            }
            instants.push_back({{"process", processes[event["pid"]]},
                                {"thread", isCrash ? "crashes" : threads[{event["pid"], event["tid"]}]},
                                {"time", time},
                                {"category", event["cat"]},
                                {"name", event["name"]},
                                {"args", arguments}});
        }
    }
};

/// What changes in a counter; zeros that a common lane of all kinds adds say nothing.
std::vector<std::pair<std::int64_t, std::uint64_t>> Changes(
    const std::vector<std::pair<std::int64_t, std::uint64_t>>& counts) {
    std::vector<std::pair<std::int64_t, std::uint64_t>> changes;
    std::uint64_t last = 0;
    for (const auto& count : counts) {
        if (count.second != last) {
            changes.push_back(count);
            last = count.second;
        }
    }
    return changes;
}

/// Two boots with a date, of 16:31:00.1 to .3 and 16:31:40.1 to .2.
std::string DatedLog() {
    return "54000005 <0x00000001:000> <CAL> <Trace> Calibration freq=1000000, now=01261024163100.54000, "
           "type=qpc\r\n"
           "100000005 <0x00000001:000> <INFO> <Engine> warm up\r\n"
           "200000005 <0x00000002:000> <ERROR> <Fuser> caf\xC3\xA9 \xFF \x01\r\nof the scanner\r\n"
           "300000005 <0x00000002:000> <ERROR> <Fuser> " +
           std::string(1000, 'x') +
           "\r\n"
           "554000002 <0x00000001:000> <CAL> <Trace> Calibration freq=1000000, now=01261024163140.54000, "
           "type=qpc\r\n"
           "600000002 <0x00000001:000> <INFO> <Engine> warm up\r\n"
           "700000002 <0x00000003:000> <WARN> <\"One\"> page 2 of 2\r\n";
}

constexpr const char* kCrashLog =
    "Crash Date/Time: 0126-10-24 16:31:41.54000\r\nTicks: 800000002\r\nFrequency: 1000000\r\n\r\n"
    "Error Code: 31AC05\r\nFile Name: fuser.cpp\r\nLine Numbr: 54\r\nFault Addr: 0\r\nCrash Type: 2\r\n"
    "Excpt Code: 0\r\nBoot Cycle: 0\r\n\r\nLoaded Modules\r\n\r\n\r\nCall Stacks\r\n\r\n\r\n"
    "Ring Buffers (unformatted)\r\n\r\nBEGIN RING BUFFER DUMP\r\n\r\n\r\nEND RING BUFFER DUMP\r\n\r\n"
    "All Done!!\r\n";

/// A record of an event that nothing dates.
std::string EventRecord() {
    VantorCallbackStruct head{};
    head.totalSize = sizeof(VantorCallbackStruct);
    head.version = VANTOR_RECORD_VERSION;
    head.eventType = 6;
    head.eventId = 2;
    head.sourceSize = VANTOR_SOURCE_SIZE;
    std::string("DeviceHost").copy(head.source, sizeof(head.source));
    return {reinterpret_cast<const char*>(&head), sizeof(head)};
}

/// Segments of a trace and of rings, of two threads.
void RecordEvents() {
    InGoodChild([] {
        SysTraceConfigure();
        RTTrace_2(SYSTRACE_ID(9, 0, 3), 0xabc, 0xFFFFFFFF);
        TRACE_RING_HANDLE panel = nullptr;
        GetTraceRingBuffer(10, &panel);
        for (std::uint32_t i = 0; i < 3; ++i) {
            WriteEventToRingBuffer(panel, 0, 0x51, i, 2, 3, 4);
        }
    });
}

/// Writes both forms of a folder's timeline and compares them. `begin`: nanoseconds on the Perfetto trace's
/// clock at the first event.
PerfettoReading Compare(std::int64_t begin, const std::vector<std::string>& options = {}) {
    for (const char* output : {"out.json", "out.pftrace"}) {
        std::vector<std::string> arguments{"timeline", "unit", "-o", output};
        arguments.insert(arguments.end(), options.begin(), options.end());
        const Result result = Post(arguments);
        EXPECT_EQ(result.code, 0) << result.errors;
    }
    const Json trace = Json::parse(ReadFile("out.json"));
    const ChromeReading chrome(trace, begin);
    PerfettoReading perfetto(ReadFile("out.pftrace"));
    EXPECT_EQ(chrome.instants.size(), perfetto.instants.size());
    for (std::size_t i = 0; i < std::min(chrome.instants.size(), perfetto.instants.size()); ++i) {
        EXPECT_EQ(chrome.instants[i], perfetto.instants[i])
            << Json::diff(chrome.instants[i], perfetto.instants[i]);
    }
    for (const auto& [lane, counts] : chrome.counters) {
        EXPECT_EQ(Changes(counts), Changes(perfetto.counters[lane])) << lane;
    }
    EXPECT_EQ(Json(perfetto.about), trace["otherData"]);
    return perfetto;
}

std::uint64_t Sum(const PerfettoReading& trace, const std::string& counter) {
    std::uint64_t sum = 0;
    const auto counts = trace.counters.find(counter);
    if (counts != trace.counters.end()) {
        for (const auto& [time, count] : counts->second) {
            sum += count;
        }
    }
    return sum;
}

/// 2026-11-24 16:31:00.054, which the first line of `DatedLog` gives.
constexpr std::int64_t kFirstDate = 1'795'537'860'054'000'000;

} // namespace

TEST_F(Timeline, TellsTheSameAsAPerfettoTrace) {
    std::filesystem::create_directory("unit");
    WriteFile("unit/device.log", DatedLog());
    WriteFile("unit/crash.txt", kCrashLog);
    WriteFile("unit/record.bin", EventRecord());
    const PerfettoReading dated = Compare(kFirstDate);
    EXPECT_EQ(dated.instants.size(), 10U);
    EXPECT_EQ(dated.instants.back()["name"], "Fatal error reported by a component");
    // Each component has a counter, which knows its own events only, and returns to zero.
    EXPECT_EQ(Sum(dated, "text lines per second: Engine"), 2U);
    EXPECT_EQ(Sum(dated, "event records per second: DeviceHost"), 1U);
    EXPECT_EQ(Changes(dated.counters.at("text lines per second: Fuser")),
              (std::vector<std::pair<std::int64_t, std::uint64_t>>{{kFirstDate, 3},
                                                                   {kFirstDate + 1'000'000'000, 0}}));
    Compare(kFirstDate + 146'000'000, {"--grep", "Fuser"});

    std::filesystem::remove_all("unit");
    RecordEvents();
    std::filesystem::create_directory("unit");
    for (const char* segment : {"SysTrace Buffer", "System Ring Buffers"}) {
        std::filesystem::rename(segment, std::string("unit/") + segment);
    }
    const PerfettoReading undated = Compare(0);
    EXPECT_EQ(Sum(undated, "ring events per second: Panel"), 3U);
}

TEST_F(Timeline, TellsALogThatBeginsInAMessageAsItsLinesStand) {
    const auto calibration = [](const char* front, const char* date) {
        return std::string(front) + ":000> <CAL> <Trace> Calibration freq=1000000, now=" + date +
               ", type=qpc\r\n";
    };
    // A round that went on at the file's start, up to the middle of an older one's header.
    std::string log = calibration("554000002 <0x00000001", "01261024163140.54000") +
                      "551000002 <0x00000001:000> <WARN> <Engine> filled it\r\n"
                      "600000002 <0x00000002:000> <WARN> <Engine> new\r\n"
                      "0001:000> <WARN> <Engine> lost\r\nand its second line\r\n";
    for (int i = 0; i < 300; ++i) {
        log += std::to_string(300'000'003 + i * 1'000'000) + " <0x0000000" + std::to_string(1 + i % 2) +
               ":000> <WARN> <Engine> old\r\n";
    }
    std::filesystem::create_directory("unit");
    WriteFile("unit/device.log", log);
    WriteFile("unit/other.log", calibration("800000002 <0x40000001", "01261024163135.34464") +
                                    "900000002 <0x40000001:000> <WARN> <Other> between\r\n");
    WriteFile("unit/crash.txt", kCrashLog);
    const auto told = [](const Json& lines, const char* text) {
        Json all = Json::array();
        for (const Json& line : lines) {
            all.push_back({line[text], line["time"], line["certainty"], line["process"], line["overwritten"],
                           line.value("thread", Json()), line.value("continues", false)});
        }
        return all;
    };
    Json shown = Post({"show", "unit", "--json"}).Parsed();
    EXPECT_EQ(shown["events"].back()["kind"], "crash");
    shown["events"].erase(shown["events"].end() - 1);
    const Json logged = Post({"log", "unit/device.log", "unit/other.log", "--json"}).Parsed();
    const Json events = told(shown["events"], "text");
    EXPECT_EQ(events, told(logged["lines"], "message"));
    EXPECT_EQ(events[1][0], "between");
    EXPECT_EQ(events[2],
              Json::parse(R"(["0001:000> <WARN> <Engine> lost", null, "assumed", 2, true, null, false])"));
    EXPECT_EQ(events[3], Json::parse(R"(["and its second line", null, "assumed", 2, true, null, true])"));
    EXPECT_EQ(shown["events"][4]["assuming"], "rounds-as-found");
    for (const std::vector<std::string>& call :
         {std::vector<std::string>{"show", "unit"}, {"log", "unit/device.log"}}) {
        std::vector<std::string> wanted = call;
        wanted.insert(wanted.end(), {"--format", "short", "--grep", "second"});
        EXPECT_EQ(Post(wanted).output, "0001:000> <WARN> <Engine> lost\nand its second line\n");
    }
    // What has no time is no end of a process; what has one has the same mark everywhere.
    const Json summary = Post({"summary", "unit", "--json"}).Parsed();
    std::size_t ends = 0;
    for (const Json& process : summary["processes"]) {
        for (const char* const end : {"first", "last"}) {
            for (const Json& event : shown["events"]) {
                if (event["process"] == process["process"] && event["time"] == process[end]) {
                    EXPECT_EQ(process[std::string(end) + "_certainty"], event["certainty"]) << event;
                    ++ends;
                }
            }
        }
    }
    EXPECT_EQ(ends, 4U);
    EXPECT_NE(Post({"summary", "unit"}).output.find(" ~< to "), std::string::npos);

    const PerfettoReading trace = Compare(kFirstDate + 34'980'464'000);
    ASSERT_EQ(trace.instants.size(), events.size() + 1);
    const auto lost = std::find_if(trace.instants.begin(), trace.instants.end(), [](const Json& instant) {
        return instant["args"]["message"] == "and its second line";
    });
    ASSERT_LT(lost, trace.instants.end() - 1);
    EXPECT_EQ((*lost)["time"], (*(lost + 1))["time"]);
    EXPECT_EQ((*lost)["thread"], "no thread");
    EXPECT_EQ((*lost)["args"]["time"], "unknown, put in front of the line after it");
}

TEST_F(Timeline, WritesOverItsOwnPerfettoTracesAndPassesThemOver) {
    std::filesystem::create_directory("unit");
    std::string log;
    for (int i = 0; i < 20'000; ++i) {
        log += std::to_string(i) + " <0x00000001:000> <WARN> <Tracer " + std::to_string(i) + "> line\r\n";
    }
    WriteFile("unit/device.log", log);
    for (int time = 0; time < 2; ++time) {
        for (const char* output : {"unit/out.pftrace", "unit/out.pftrace.gz"}) {
            const Result result = Post({"timeline", "unit", "-o", output, "--json"});
            ASSERT_EQ(result.code, 0) << result.errors;
            EXPECT_EQ(result.Parsed()["events"], 20'000);
        }
    }
    const std::string plain = ReadFile("unit/out.pftrace");
    ASSERT_EQ(std::system("gzip -dc unit/out.pftrace.gz > plain.pftrace"), 0);
    EXPECT_TRUE(ReadFile("plain.pftrace") == plain);
    // What is interned, and what has a counter, does not grow with the names that a log makes up.
    const PerfettoReading trace(plain);
    EXPECT_EQ(trace.instants.size(), 20'000U);
    EXPECT_EQ(trace.instants.back()["name"], "WARN Tracer 19999");
    EXPECT_EQ(trace.counters.size(), 1001U);
}
