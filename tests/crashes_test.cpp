// The crashes of a folder, as nima-post tells of them.

#include "catalogue/Marks.h"
#include "catalogue/OwnEvents.h"
#include "tests/support/DeviceFiles.h"
#include "tests/support/Page.h"
#include "tests/support/Post.h"
#include "tests/support/Sandbox.h"
#include "tools/report/Rows.h"
#include "tools/story/Selection.h"

#include <array>
#include <cstring>
#include <map>
#include <optional>
#include <string>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <Diagnostics/CrashApi.h>

using namespace Nima::Testing;

namespace {

class Crashes : public Sandbox {};

/// A log of two boots, whose clocks stand half a second apart.
constexpr const char* kTwoBoots =
    "500000000 <0x00000001:000> <CAL> <Trace> Calibration freq=1000000, "
    "now=01261024163100.54000, type=qpc\r\n"
    "500000100 <0x00000001:000> <WARN> <One> first\r\n"
    "400 <0x00000002:000> <CAL> <Trace> Calibration freq=1000000, "
    "now=01261024173100.54000, type=qpc\r\n"
    "500 <0x00000002:000> <WARN> <One> second\r\n";

/// A process that ends itself by a report leaves this file.
std::string ReportOf(const char* message, const char* file) {
    std::string left;
    InChild([&] { HandleFatalCrash(message, "", 0x31AC05, file, 54); });
    for (const std::string& name : Listing(".")) {
        left = name.starts_with("stacktrace") ? name : left;
    }
    return left;
}

} // namespace

TEST_F(Crashes, AHostsOwnReportIsToldByItsMessageAndPlace) {
    struct Case {
        std::string message, file, headline;
        bool cut;
    };
    for (const Case& each :
         {Case{"the fuser is on fire", "ways_to_die.cpp", "the fuser is on fire (ways_to_die.cpp, line 54)",
               false},
          Case{"two\nlines]", "/a, line 7/b.cpp", "two\\x0alines] (/a, line 7/b.cpp, line 54)", false},
          Case{std::string(200, 'x'), "f.cpp", std::string(73, 'x') + "... (f.cpp, line 54)", true}}) {
        const std::string file = ReportOf(each.message.c_str(), each.file.c_str());
        const Result result = Post({"crash", file, "--json"});
        ASSERT_EQ(result.code, 0) << result.output;
        const Json json = result.Parsed();
        EXPECT_EQ(json["title"], each.headline);
        EXPECT_EQ(json["host"]["line"], 54);
        EXPECT_EQ(json["host"]["code"], "0x0031ac05");
        EXPECT_EQ(result.Finds("message-cut"), each.cut);
        EXPECT_EQ(Lines(Post({"crash", file}).output).at(0), each.headline);
        unlink(file.c_str());
    }
    // The name of a file may be so long that it fills the lines.
    const std::string file = ReportOf("the fuser is on fire", std::string(120, 'p').c_str());
    const Result result = Post({"crash", file, "--json"});
    ASSERT_EQ(result.code, 0) << result.output;
    EXPECT_EQ(result.Parsed()["title"], "A host's own report whose message was cut off");
    EXPECT_FALSE(result.Parsed()["frames"].empty());
}

TEST_F(Crashes, AStrippedLibrarysHandlersAreToldApart) {
    // Only the report's function is exported, and lends the others its name.
    const std::string entered = "0x3f7adbe9: (HandleFatalCrash+0x23f)\n";
    const auto title = [&](const std::string& rest) {
        WriteFile("stacktrace1-1.txt", entered + rest);
        return Lines(Post({"crash", "stacktrace1-1.txt"}).output).at(0);
    };
    EXPECT_EQ(title("0x3f52b1b1: (__default_sa_restorer+0xf)\n0x4000: (main+0x9)\n"), "Fatal signal");
    EXPECT_EQ(title("0x3f6ad5cb: (std::terminate()+0x9)\n0x4000: (main+0x9)\n"), "Uncaught exception");
    EXPECT_EQ(title("0x3f52b1b1: (__sigaction+0x40)\n0x3f51b0ad: (abort+0xa3)\n"), "Abort");
}

namespace {

/// Codes of the crashes that `report --json` lists, and what each is put after the one before by.
std::string OrderTold() {
    std::string told;
    const Json json = Post({"report", ".", "-o", "report.html", "--json"}).Parsed();
    for (const Json& crash : json["crashes"]) {
        const std::string by = crash["after_by"].is_null() ? "" : crash["after_by"].get<std::string>();
        told += (by.empty() ? "" : " <" + by + "> ") + crash["error_code"].get<std::string>();
    }
    EXPECT_EQ(json["title"], json["crashes"].back()["title"]);
    return told;
}

} // namespace

TEST_F(Crashes, AllOfAFolderAreListedInTheOrderThatEvidenceGives) {
    // The clock was set back between the boots, so that dates alone would turn them round.
    WriteFile("a.txt", CrashLogOf({"A", 50, 500'000'000, 1}));
    WriteFile("b.txt", CrashLogOf({"B", 10, 500'000'000, 2}));
    EXPECT_EQ(OrderTold(), "A <boot cycle> B");
    EXPECT_NE(ReadFile("report.html").find("although its date is earlier"), std::string::npos);
    // The number of a backup outweighs even that, and carries over to a log without a cycle.
    WriteFile("b.txt.1", CrashLogOf({"C", 55, 500'000'000, 0}));
    WriteFile("b.txt.10", CrashLogOf({"D", 58, 500'000'000, 3}));
    EXPECT_EQ(OrderTold(), "A <boot cycle> D <file number> C <file number> B");
    for (const char* file : {"b.txt", "b.txt.1", "b.txt.10"}) {
        unlink(file);
    }
    // Within a boot cycle, counters more than a period apart have only one order.
    WriteFile("b.txt", CrashLogOf({"B", 10, 1'500'000'001, 1}));
    EXPECT_EQ(OrderTold(), "A <counter> B");
    WriteFile("b.txt", CrashLogOf({"B", 10, 1'400'000'000, 1}));
    EXPECT_EQ(OrderTold(), "B <date> A");
    WriteFile("b.txt", CrashLogOf({"B", 50, 500'000'000, 0}));
    EXPECT_EQ(OrderTold(), "AB");
    // Within a second, the counters tell it where they fit what is left of the microseconds, unless the clock
    // may have begun at that second in both boots.
    WriteFile("a.txt", CrashLogOf({"A", 50, 720'000'000, 0}));
    WriteFile("b.txt", CrashLogOf({"B", 50, 720'000'000 - 2 * 65'536'000, 0}));
    EXPECT_EQ(OrderTold(), "B <date> A");
    WriteFile("b.txt", CrashLogOf({"B", 50, 720'000'000 - 2 * 65'536'000 - 30'000'000, 0}));
    EXPECT_EQ(OrderTold(), "AB");
    WriteFile("a.txt", CrashLogOf({"A", 50, 54'500'000 + 2 * 65'536'000, 0}));
    WriteFile("b.txt", CrashLogOf({"B", 50, 54'500'000, 0}));
    EXPECT_EQ(OrderTold(), "AB");

    // Each is in what the commands print, on the timeline and on the page.
    const Result timeline = Post({"timeline", ".", "-o", "out.json"});
    EXPECT_NE(timeline.output.find("crash 1 of 2: 2026-11-24 16:31:50.054000000 +  Fatal error"),
              std::string::npos)
        << timeline.output;
    EXPECT_NE(timeline.output.find("crash 2 of 2"), std::string::npos);
    std::size_t marks = 0;
    const Json trace = Json::parse(ReadFile("out.json"));
    for (const Json& event : trace["traceEvents"]) {
        marks += event.value("cat", "") == "crash" ? 1 : 0;
    }
    EXPECT_EQ(marks, 2U);
    EXPECT_EQ(PageData()["crashes"].size(), 2U);
}

namespace {

constexpr long long kMinute = 1'795'537'860; ///< 2026-11-24 16:31:00, as if local time were UTC

void SetModified(const std::string& file, long long second) {
    const timespec time{static_cast<time_t>(second), 0};
    const std::array<timespec, 2> times{time, time};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times.data(), 0), 0);
}

Json CrashesTold() {
    return Post({"report", ".", "-o", "report.html", "--json"}).Parsed()["crashes"];
}

} // namespace

TEST_F(Crashes, ADeathBySignalComesAfterEverythingButNoLaterThanItsFile) {
    constexpr long long kZone = 3 * 3600 + 1800;
    WriteFile("crash.txt", CrashLogOf({}));
    WriteFile("stacktrace7-1.txt", "0x1: (signalHandler+0x1)\n0x2: (Feed::Run()+0x8)\n");
    WriteFile("stacktrace7-2.txt", "0x1: (signalHandler+0x1)\n0x2: (abort+0xd3)\n");
    WriteFile("device.log",
              "500000000 <0x00000001:000> <CAL> <Trace> Calibration freq=1000000, "
              "now=01261024163100.54000, type=qpc\r\n"
              "500000100 <0x00000001:000> <WARN> <One> last\r\n");
    // Copying has given all files the same time.
    for (const std::string& file : Listing(".")) {
        SetModified(file, kMinute + 123'456);
    }
    Json crashes = CrashesTold();
    ASSERT_EQ(crashes.size(), 2U);
    EXPECT_EQ(crashes[1]["title"], "Fatal signal");
    EXPECT_EQ(crashes[1]["files"].size(), 2U);
    EXPECT_EQ(crashes[1]["process_id"], 7);
    EXPECT_EQ(crashes[1]["time"], "2026-11-24T16:31:00.054000101");
    EXPECT_EQ(crashes[1]["later_by_seconds"], "unbounded");
    EXPECT_EQ(crashes[1]["assumed"], true);
    EXPECT_EQ(crashes[1]["after_by"], "assumed");
    EXPECT_NE(ReadFile("report.html").find("were not kept"), std::string::npos);
    EXPECT_EQ(PageData()["crashes"][1]["sure"], 3);

    // After the last line of the log, whose clock was set back meanwhile, not after the latest date.
    const std::string before = ReadFile("device.log");
    const auto calibration = [](const char* counter, const char* date) {
        return std::string(counter) +
               " <0x00000001:000> <CAL> <Trace> Calibration freq=1000000, now=" + date + ", type=qpc\r\n" +
               counter + " <0x00000001:000> <WARN> <One> line\r\n";
    };
    WriteFile("device.log",
              calibration("700000000", "01261024193100.54000") + calibration("400", "00700001000100.54000"));
    unlink("crash.txt");
    EXPECT_EQ(CrashesTold()[0]["time"], "1970-01-01T00:01:00.054000001");
    WriteFile("device.log", before);
    WriteFile("crash.txt", CrashLogOf({}));
    for (const std::string& file : Listing(".")) {
        SetModified(file, kMinute + 123'456);
    }

    // The times were kept, in another zone: they bound the death from above.
    SetModified("crash.txt", kMinute + kZone + 2);
    SetModified("stacktrace7-1.txt", kMinute + kZone + 40);
    crashes = CrashesTold();
    EXPECT_EQ(crashes[1]["time"], "2026-11-24T16:31:00.054000101");
    EXPECT_EQ(crashes[1]["later_by_seconds"], 40);
    EXPECT_EQ(crashes[1]["after_by"], "file time");
    EXPECT_EQ(ReadFile("report.html").find("were not kept"), std::string::npos);
    SetModified("stacktrace7-1.txt", kMinute + kZone - 30);
    crashes = CrashesTold();
    EXPECT_EQ(crashes[0]["title"], "Fatal signal");
    EXPECT_EQ(crashes[0]["time"], "2026-11-24T16:30:30.000000000");

    // An identifier that comes again after a reboot is another death, but for the handler's own abort.
    WriteFile("stacktrace7-3.txt", "0x1: (terminateHandler()+0x1)\n");
    WriteFile("stacktrace7-4.txt",
              "0x1: (signalHandler+0x1)\n0x2: (abort+0xd3)\n0x3: (terminateHandler()+0x9)\n");
    WriteFile("stacktrace7-5.txt", "0x1: (signalHandler+0x1)\n0x2: (abort+0xd3)\n0x3: (main+0x9)\n");
    WriteFile("stacktrace8-1.txt", "0x1: (signalHandler+0x1)\n0x2: (abort+0xd3)\n0x3: (main+0x9)\n");
    std::map<std::string, std::size_t> deaths;
    for (const Json& crash : CrashesTold()) {
        deaths[crash["title"]] += crash["files"].size();
    }
    EXPECT_EQ(deaths, (std::map<std::string, std::size_t>{{"Fatal error reported by a component", 1},
                                                          {"Fatal signal", 2},
                                                          {"Uncaught exception", 2},
                                                          {"Abort", 2}}));
}

namespace {

/// A crash log with records in the library's own ring, each a counter and a thread.
std::string WithRecords(std::string text, const std::vector<std::pair<std::string, std::string>>& records) {
    const std::string begin = Nima::Catalogue::kRingDumpBegin;
    std::string ring = std::string("\r\n\r\n") + Nima::Catalogue::kRingHeadingBegin +
                       std::to_string(Nima::Catalogue::kOwnRing) + Nima::Catalogue::kRingHeadingEnd + "\r\n";
    for (const auto& [counter, thread] : records) {
        ring.append(counter).append(" ").append(thread);
        ring += " 0x00000001 : 0x00000001 0x00000002 0x00000003 0x00000004\r\n";
    }
    return text.insert(text.find(begin) + begin.size(), ring);
}

} // namespace

TEST_F(Crashes, OfSeveralBootCyclesAreToldAlikeByEveryCommand) {
    // The second one has the earlier date, and the same thread.
    WriteFile("a.txt", WithRecords(CrashLogOf({"A", 50, 500'000'000, 1}), {{"499999000", "0x00000001"}}));
    WriteFile("b.txt", WithRecords(CrashLogOf({"B", 10, 600'000'000, 2}), {{"599999000", "0x00000001"}}));
    const Json shown = Post({"show", ".", "--json"}).Parsed();
    const Json& crashes = shown["crashes"];
    ASSERT_EQ(crashes.size(), 2U);
    EXPECT_EQ(crashes[0]["error_code"], "A");
    EXPECT_EQ(std::pair(crashes[0]["process"], crashes[1]["process"]), std::pair(Json(1), Json(2)));
    Json summed = Post({"summary", ".", "--json"}).Parsed()["crashes"];
    const Json files = Post({"crash", ".", "--json"}).Parsed();
    Json::array_t events;
    std::string order;
    for (const Json& event : shown["events"]) {
        order += event["file"].get<std::string>().substr(0, 1);
        if (event["kind"] == "crash") {
            events.push_back(event);
        }
    }
    EXPECT_EQ(order, "aabb");
    ASSERT_EQ(Post({"timeline", ".", "-o", "out.json"}).code, 0);
    Json::array_t marks;
    const Json trace = Json::parse(ReadFile("out.json"));
    for (const Json& event : trace["traceEvents"]) {
        if (event.value("cat", "") == "crash") {
            marks.push_back(event["args"]);
        }
    }
    ASSERT_EQ(std::pair(events.size(), marks.size()), std::pair(std::size_t{2}, std::size_t{2}));
    const std::string screen = Post({"summary", "."}).output;
    const std::string told = Post({"crash", "."}).output;
    for (std::size_t i = 0; i < 2; ++i) {
        summed[i].erase("cause");
        summed[i].erase("first_error");
        EXPECT_EQ(summed[i], crashes[i]);
        Json numbered = crashes[i];
        numbered["number"] = i + 1;
        EXPECT_EQ(files[i]["crash"], numbered);
        for (const char* member : {"time", "certainty", "date_cut_ns", "process", "boot"}) {
            EXPECT_EQ(events[i][member], crashes[i][member]) << member;
        }
        std::string time = crashes[i]["time"];
        time.replace(time.find('T'), 1, " ");
        EXPECT_EQ(marks[i]["time"], time);
        EXPECT_EQ(std::pair(marks[i]["mark"], marks[i]["process"]), std::pair(Json("+"), Json(i + 1)));
        EXPECT_NE(screen.find(time + " +  Fatal"), std::string::npos) << screen;
        EXPECT_EQ(CountOf(told, time + " +  "), 2U) << told;
    }
    const Result none = Post({"show", ".", "--since", "crash=1", "--until", "crash"});
    EXPECT_NE(none.errors.find("ends before it begins"), std::string::npos) << none.errors;
    EXPECT_EQ(crashes[1]["process_doubt"], Json()) << "the boot cycles part them";
}

TEST_F(Crashes, OfAProcessThatOnlyItsThreadTellsAreProbablyItsWhereIdentifiersRecur) {
    // The first one may have had the second's other thread, too.
    WriteFile("device.log",
              "500000000 <0x00000001:000> <CAL> <Trace> Calibration freq=1000000, "
              "now=01261024153100.54000, type=qpc\r\n"
              "500000100 <0x00000001:000> <WARN> <One> first\r\n"
              "400 <0x00000001:000> <CAL> <Trace> Calibration freq=1000000, "
              "now=01261024163100.54000, type=qpc\r\n"
              "500 <0x00000002:000> <WARN> <One> second\r\n");
    WriteFile("crash.txt", WithRecords(CrashLogOf({"A", 7, 407, 0}), {{"401", "0x00000002"}}));
    const Json shown = Post({"show", ".", "--json"}).Parsed();
    EXPECT_EQ(std::pair(shown["crashes"][0]["process"], shown["crashes"][0]["process_doubt"]),
              std::pair(Json(2), Json("probably")));
    EXPECT_EQ(shown["processes"][1]["doubts"], Json({"boot", "records"}));
    const std::string words = "probably process 2, perhaps boot 2";
    EXPECT_NE(Post({"crash", "."}).output.find("(" + words + ","), std::string::npos);
    ASSERT_EQ(Post({"timeline", ".", "-o", "out.json"}).code, 0);
    EXPECT_NE(ReadFile("out.json").find("process 2, perhaps boot 2, its records probably"),
              std::string::npos);
    ASSERT_EQ(Post({"report", ".", "-o", "report.html"}).code, 0);
    EXPECT_EQ(PageData()["crashes"][0]["processWords"], words);
    EXPECT_EQ(PageData()["processes"][1]["probable"], Json({{"lines", false}, {"records", true}}));
}

TEST_F(Crashes, AreDatedByTheClockOfTheirBootOrByTheirOwnDate) {
    WriteFile("device.log", kTwoBoots);
    WriteFile("crash.txt", CrashLogOf({"A", 7, 893'216'007, 1}));
    Json crash = CrashesTold().at(0);
    EXPECT_EQ(crash["time"], "2026-11-24T16:31:07.447216000");
    EXPECT_EQ(crash["later_by_seconds"], 0);
    EXPECT_EQ(crash["dated_by"], "log");
    EXPECT_NE(Post({"crash", "."}).output.find("; by the clock of a log\n"), std::string::npos);
    EXPECT_NE(Post({"crash", "crash.txt"}).output.find("; by its own date\n"), std::string::npos);
    // Where two dates leave nothing open, a third that was read 10 us sooner takes nothing from that.
    const std::string calibrated(kTwoBoots, std::strstr(kTwoBoots, "500000100"));
    WriteFile("device.log.1", calibrated + "445000005 <0x00000001:000> <WARN> <One> full\r\n");
    WriteFile("device.log",
              "445000006 <0x00000001:000> <CAL> <Trace> Calibration freq=1000000, "
              "now=01261024163105.15960, type=qpc\r\n");
    for (const long long ticks : {893'216'007, 893'226'007}) {
        const std::string text = CrashLogOf({"A", 7, ticks, 1});
        WriteFile("crash.txt", WithRecords(text, {{"893216000", "0x00000001"}}));
        crash = CrashesTold().at(0);
        EXPECT_EQ(std::pair(crash["certainty"], crash["date_cut_ns"]), std::pair(Json("exact"), Json(0)));
        // Any clock may fit one of which no thread is known.
        WriteFile("crash.txt", text);
        EXPECT_EQ(CrashesTold().at(0)["certainty"], "open");
    }
    // A clock that fits it so badly may be another process's with the same thread.
    const std::string late = WithRecords(CrashLogOf({"A", 7, 896'216'007, 1}), {{"893216000", "0x00000001"}});
    WriteFile("crash.txt", late);
    crash = CrashesTold().at(0);
    EXPECT_EQ(crash["certainty"], "open");
    EXPECT_EQ(std::pair(crash["earlier_by_seconds"], crash["later_by_seconds"]), std::pair(Json(1), Json(1)));
    unlink("device.log.1");
    WriteFile("device.log", kTwoBoots);
    // In the rings stands what the other process wrote. Of which boot it was, this head tells nothing.
    const std::string text = WithRecords(CrashLogOf({"A", 7, 893'216'007, 1}),
                                         {{"600", "0x00000002"}, {"893216000", "0x00000001"}});
    WriteFile("crash.txt", text);
    std::map<int, std::string> later;
    const Json shown = Post({"show", ".", "--json"}).Parsed();
    for (const Json& event : shown["events"]) {
        if (event["kind"] == "ring") {
            EXPECT_EQ(event["later_by_seconds"], "unbounded") << "if the clock was set since";
            later[event["process"]] = event.value("likely_later_by_seconds", Json()).dump();
        }
    }
    EXPECT_EQ(later, (std::map<int, std::string>{{1, "1"}, {2, "null"}})) << shown;

    // The clock that dates it tells its process. Of this boot or of that one, no error is called the first.
    const auto firstError = [] {
        return Post({"summary", ".", "--json"}).Parsed()["crashes"][0]["first_error"];
    };
    const std::string twoBoots = ReadFile("device.log");
    std::string log = twoBoots;
    for (std::size_t at = log.find("<WARN>"); at != std::string::npos; at = log.find("<WARN>")) {
        log.replace(at, 6, "<ERROR>");
    }
    WriteFile("device.log", log);
    EXPECT_EQ(firstError()["text"], "first");
    WriteFile("crash.txt", CrashLogOf({"A", 7, 893'216'007, 1}));
    EXPECT_EQ(firstError()["text"], "first");
    crash = CrashesTold().at(0);
    EXPECT_EQ(std::pair(crash["process"], crash["boot"]), std::pair(Json(1), Json(1)));
    WriteFile("crash.txt", CrashLogOf({"A", 7, 920'000'000, 1}));
    EXPECT_TRUE(firstError().is_null());
    WriteFile("device.log", log.substr(0, log.find("400 <")));
    EXPECT_EQ(firstError()["text"], "first");
    WriteFile("device.log", twoBoots);

    // No clock of that hour explains these, nor does any explain one that stands alone.
    WriteFile("crash.txt", CrashLogOf({"A", 7, 920'000'000, 1}));
    for (int go = 0; go < 2; ++go) {
        crash = CrashesTold().at(0);
        EXPECT_EQ(crash["time"], "2026-11-24T16:31:07.054000000");
        EXPECT_EQ(std::pair(crash["certainty"], crash["date_cut_ns"]),
                  std::pair(Json("cut"), Json(917'504'000)));
        unlink("device.log");
    }
}

TEST_F(Crashes, AHostsReportAndItsCrashLogAreOneCrash) {
    InChild([] {
        InstallCrashHandler(0);
        GatherTriageSnapshot(L"./crash.txt", 2, 3, 0x31AC05, 0, 0, 0, 0, false);
        HandleFatalCrash("the fuser is on fire", "", 0x31AC05, "fuser.cpp", 54);
    });
    const Json crashes = CrashesTold();
    ASSERT_EQ(crashes.size(), 1U) << crashes;
    EXPECT_EQ(crashes[0]["title"], "the fuser is on fire (fuser.cpp, line 54)");
    EXPECT_EQ(crashes[0]["files"].size(), 3U); // The handler's abort left one as well.
    EXPECT_EQ(crashes[0]["assumed"], false);
    EXPECT_EQ(PageData()["crashes"][0]["stacks"].size(), 2U);
    const std::string told = Post({"crash", "."}).output;
    EXPECT_NE(Lines(told).at(0).find("  the fuser is on fire (fuser.cpp, line 54)"), std::string::npos)
        << told;
    EXPECT_EQ(told.find("Failure reported by the host"), std::string::npos);
    // Of several crash logs with that code it belongs to the one that was written just before it, whatever
    // other deaths are there.
    const Json files = crashes[0]["files"];
    const std::string report = files[1];
    WriteFile("crash.txt", CrashLogOf({"31AC05", 20, 520'000'000, 42, "3"}));
    WriteFile("crash.txt.1", CrashLogOf({"31AC05", 10, 510'000'000, 42, "2"}));
    WriteFile("stacktrace1-1.txt", "0x1: (signalHandler+0x1)\n0x2: (Feed::Run()+0x8)\n");
    SetModified("crash.txt.1", kMinute + 10);
    SetModified("stacktrace1-1.txt", kMinute + 21);
    SetModified("crash.txt", kMinute + 22);
    SetModified(report, kMinute + 23);
    const auto titles = [] {
        std::string all;
        for (const Json& crash : CrashesTold()) {
            all += crash["title"].get<std::string>().substr(0, 12) + crash["perhaps_of"].dump() + " ";
        }
        return all;
    };
    const std::string joined = "Fatal error [] Fatal signal[] the fuser is[] ";
    EXPECT_EQ(titles(), joined);
    EXPECT_EQ(CrashesTold()[2]["files"], files);
    // Each of two reports has its own, and a report without one has none.
    WriteFile("stacktrace2-1.txt", ReadFile(report));
    SetModified("stacktrace2-1.txt", kMinute + 11);
    EXPECT_EQ(titles(), "the fuser is[] Fatal signal[] the fuser is[] ");
    SetModified("stacktrace2-1.txt", kMinute + 45);
    EXPECT_EQ(titles(), joined + R"(the fuser is["crash.txt.1"] )");
    SetModified("stacktrace2-1.txt", kMinute + 90);
    EXPECT_EQ(titles(), joined + "the fuser is[] ");
    unlink("stacktrace2-1.txt");
    // Nothing tells which where both were written at about that time, or where times were not kept.
    const std::string undecided =
        R"(Fatal error [] Failure repo[] Fatal signal[] the fuser is["crash.txt.1","crash.txt"] )";
    for (const std::string& file : Listing(".")) {
        SetModified(file, kMinute + 123'456);
    }
    EXPECT_EQ(titles(), undecided);
    const std::string summary = Post({"summary", "."}).output;
    EXPECT_NE(summary.find("At most 4 crashes\n"), std::string::npos) << summary;
    EXPECT_NE(summary.find("     perhaps one crash with crash.txt.1 or crash.txt\n"), std::string::npos);
    EXPECT_NE(
        Post({"report", ".", "-o", "-"}).output.find(R"("perhaps":"perhaps one crash with crash.txt.1 or )"),
        std::string::npos);
    SetModified("crash.txt.1", kMinute + 14);
    SetModified("crash.txt", kMinute + 15);
    SetModified("stacktrace1-1.txt", kMinute + 16);
    SetModified(report, kMinute + 17);
    WriteFile("crash.txt", CrashLogOf({"31AC05", 15, 520'000'000, 42, "3"}));
    SetModified("crash.txt", kMinute + 15);
    EXPECT_EQ(titles(), undecided);
}

TEST_F(Crashes, EventsAreToldByTheirProcess) {
    // Processes may use the same thread ids.
    const NimaPost::Names names;
    NimaPost::Rows rows(10, names);
    NimaPost::TimelineEvent event;
    event.thread = 0x97;
    for (std::size_t process = 1; process <= 2; ++process) {
        event.time = static_cast<std::int64_t>(process);
        event.process = process;
        event.boot = process == 1 ? std::optional<std::size_t>(3) : std::nullopt;
        event.name = process == 1 ? "One" : "Two";
        rows.Take(event);
    }
    const Json threads = Json::parse(rows.ThreadsJson().dump());
    EXPECT_EQ(threads, Json::parse(R"([{"id": "0x00000097", "name": "One", "process": 1},
                                       {"id": "0x00000097", "name": "Two", "process": 2}])"));
    NimaPost::Processes known;
    NimaPost::ProcessFacts facts;
    facts.boot = 3;
    known.Add(facts);
    known.Add({});
    const auto takes = [&](std::optional<std::int64_t> boot, std::optional<std::size_t> process) {
        NimaPost::SelectionOptions options;
        options.boot = boot;
        options.process = process;
        NimaPost::Selection selection;
        std::string problem;
        EXPECT_TRUE(selection.Prepare(options, problem) && selection.Settle(known, {}, problem)) << problem;
        return selection.Takes(event);
    };
    EXPECT_FALSE(takes(3, std::nullopt));
    EXPECT_TRUE(takes(std::nullopt, 2));

    // Whatever processes the folder is found to tell of: events are under their own, the others under one.
    WriteFile("device.log", kTwoBoots);
    WriteFile("crash.txt", CrashLogOf({}));
    ASSERT_EQ(Post({"timeline", ".", "-o", "out.json"}).code, 0);
    const Json trace = Json::parse(ReadFile("out.json"));
    std::map<int, std::string> named;
    for (const Json& each : trace["traceEvents"]) {
        if (each["name"] == "process_name") {
            EXPECT_TRUE(named.emplace(each["pid"], each["args"]["name"]).second);
        }
    }
    std::size_t instants = 0;
    for (const Json& each : trace["traceEvents"]) {
        if (each["ph"] == "i") {
            ++instants;
            const Json process = each["args"]["process"];
            const Json boot = each["args"]["boot"];
            EXPECT_EQ(named[each["pid"]], process.is_null()
                                              ? "device"
                                              : "process " + process.dump() +
                                                    (process == 2 ? ", perhaps boot " : ", boot ") +
                                                    (boot.is_null() ? "unknown" : boot.dump()));
        }
    }
    EXPECT_EQ(instants, 5U);
    EXPECT_EQ(Post({"show", ".", "--json"}).Parsed()["processes"][1]["boot_doubt"], "perhaps");
    const Result missing = Post({"report", ".", "-o", "report.html", "--process", "99"});
    EXPECT_EQ(missing.code, 2);
    EXPECT_NE(missing.errors.find("no process 99"), std::string::npos);
    EXPECT_EQ(Post({"timeline", ".", "-o", "out.json", "--boot", "99"}).code, 2);
}

TEST_F(Crashes, OnlyThoseThatAreSelectedAreShown) {
    WriteFile("crash.txt.1", CrashLogOf({"A", 10, 500'000'000, 1}));
    WriteFile("crash.txt", CrashLogOf({"B", 50, 500'000'000, 2}));
    WriteFile("stacktrace977-1.txt", "0x3f52b1b1: (__default_sa_restorer+0xf)\n0x4000: (main+0x9)\n");
    const auto files = [](std::vector<std::string> selection) {
        selection.insert(selection.begin(), {"crash", ".", "--json"});
        const Result result = Post(selection);
        std::string told;
        const Json json = result.Parsed();
        for (const Json& file : json["files"]) {
            told += (told.empty() ? "" : " ") + file["file"].get<std::string>();
        }
        return told;
    };
    EXPECT_EQ(files({"--since", "16:31:20", "--grep", "0xA"}), "");
    EXPECT_EQ(files({"--since", "16:31:20", "--grep", "0xB"}), "./crash.txt");
    EXPECT_EQ(files({"--around", "16:31:10", "--within", "1"}), "./crash.txt.1");
    EXPECT_EQ(files({"--around", "crash=2", "--within", "1", "--not", "handler"}), "./crash.txt");
    EXPECT_EQ(files({"--grep", "HANDLER", "-i"}), "./stacktrace977-1.txt");
    EXPECT_EQ(files({"--last", "2"}), "./crash.txt ./stacktrace977-1.txt");
    EXPECT_EQ(files({"--last", "9", "--until", "crash=2"}), "./crash.txt.1");
    EXPECT_EQ(Post({"crash", ".", "--boot", "99"}).code, 2);
    const Result text = Post({"crash", ".", "--last", "1", "--until", "16:31:20"});
    EXPECT_EQ(Lines(text.output).at(0).substr(0, 40), "crash 1 of 3: 2026-11-24 16:31:10.054000");
    EXPECT_NE(text.output.find("  error code   0xA\n"), std::string::npos) << text.output;
    EXPECT_EQ(Post({"crash", ".", "--until", "16:00"}).output.substr(0, 21), "No crash is selected.");
}
