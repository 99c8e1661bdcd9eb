// What the page of `nima-post report` holds.

#include "tests/support/Page.h"

#include "tests/support/Post.h"
#include "tests/support/Sandbox.h"
#include "tools/base/WallClock.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>

using namespace Nima::Testing;

namespace {

class ReportPage : public Sandbox {};

constexpr std::size_t kLongestText = 2000;

std::string Calibration(int minute, int second, long long counter) {
    const auto digits = [](int number) { return (number < 10 ? "0" : "") + std::to_string(number); };
    return std::to_string(counter) +
           " <0x00000001:000> <CAL> <Trace> Calibration freq=1000000, now=0126102416" + digits(minute) +
           digits(second) + ".54000, type=qpc\r\n";
}

std::string Line(long long counter, const std::string& message, const std::string& thread = "00000001") {
    return std::to_string(counter) + " <0x" + thread + ":000> <INFO> <Engine> " + message + "\r\n";
}

/// Two boots, the second by a clock that was set back, and of the first a crash.
void WriteTwoBoots() {
    WriteFile("device.log", Calibration(31, 0, 54'000'005) + Line(100'000'005, "warm up") +
                                Line(200'000'005, "lamp\r\nof the scanner") +
                                Line(300'000'005, "page 1 of 2", "00000002") +
                                Calibration(10, 40, 554'000'002) + Line(600'000'002, "Lamp again") +
                                Line(700'000'002, "page 2 of 2"));
}

std::string CrashLogAt(int second) {
    return "Crash Date/Time: 0126-10-24 16:31:0" + std::to_string(second) +
           ".54000\r\nTicks: 400000002\r\nFrequency: 1000000\r\n\r\nError Code: 31AC05\r\nFile Name: "
           "fuser.cpp\r\nCrash Type: 2\r\nExcpt Code: 0\r\nBoot Cycle: 0\r\n\r\n"
           "Loaded Modules\r\n\r\n\r\nCall Stacks\r\n\r\n\r\nRing Buffers (unformatted)\r\n\r\n"
           "BEGIN RING BUFFER DUMP\r\n\r\n\r\nEND RING BUFFER DUMP\r\n\r\nAll Done!!\r\n";
}

/// What `show` and the page both tell of an event.
using Told = std::vector<Json>;

Told ToldByShow(std::vector<std::string> selection) {
    selection.insert(selection.begin(), {"show", "."});
    selection.insert(selection.end(), {"--format", "json"});
    Told told;
    const Json shown = Post(selection).Parsed();
    for (const Json& event : shown["events"]) {
        std::string text = event["text"];
        if (text.size() > kLongestText) {
            text = text.substr(0, kLongestText) + " ...";
        }
        Json level = event["level"];
        if (event["kind"] == "binary") {
            level = level.get<std::string>().substr(std::string("level ").size());
        }
        const auto number = [](const Json& value) { return value.is_null() ? Json(0) : value; };
        told.push_back({event["time"], event["file"], event["thread"], level, event["name"],
                        event.value("arguments", Json::array()), number(event["process"]),
                        number(event["boot"]), text});
    }
    return told;
}

Told ToldByPage(std::vector<std::string> selection) {
    selection.insert(selection.begin(), {"report", ".", "-o", "report.html"});
    const Result result = Post(selection);
    EXPECT_LE(result.code, 1) << result.errors;
    const Json page = PageData();
    const Json& clock = page["clock"];
    const auto origin =
        clock["originMs"].get<std::int64_t>() * 1'000'000 + clock["originNs"].get<std::int64_t>();
    Told told;
    for (const Json& row : page["rows"]) {
        const Json time = row["time"].is_null()
                              ? Json()
                              : Json(NimaPost::WallTimeIso(origin + row["time"].get<std::int64_t>()));
        told.push_back({time, row["file"], row["thread"], row["level"], row["name"], row["words"],
                        row["process"], row["boot"], row["text"]});
    }
    return told;
}

} // namespace

TEST_F(ReportPage, HoldsTheRowsThatShowListsForEverySelection) {
    WriteTwoBoots();
    WriteFile("crash.txt", CrashLogAt(1));
    InGoodChild([] {
        SysTraceConfigure();
        TRACE_RING_HANDLE panel = nullptr;
        GetTraceRingBuffer(10, &panel);
        for (std::uint32_t i = 0; i < 5; ++i) {
            RTTrace_1(SYSTRACE_ID(9, 0, 3), i);
            WriteEventToRingBuffer(panel, 0, 7, i, 0xFFFFFFFF, 0, 4);
        }
    });
    ASSERT_GT(ToldByShow({}).size(), 10U);
    for (const std::vector<std::string>& selection :
         {std::vector<std::string>{},
          {"--boot", "1"},
          {"--boot", "0"},
          {"--process", "1"},
          {"--grep", "page \\d"},
          {"--not", "LAMP", "-i"},
          {"--since", "16:31", "--until", "16:31:00.25"},
          {"--around", "end", "--within", "1h", "--grep", "code"}}) {
        EXPECT_EQ(ToldByPage(selection), ToldByShow(selection)) << ::testing::PrintToString(selection);
    }
    EXPECT_EQ(Post({"report", ".", "-o", "none.html", "--boot", "7"}).code, 2);
}

TEST_F(ReportPage, IsNotBrokenByWhatADeviceSays) {
    const std::vector<std::string> hostile{"</script><script>window.broken = true</script>",
                                           "<!-- <script> \" ' ` \\ & &lt;",
                                           std::string("a\0b", 3),
                                           "separators \xE2\x80\xA8 and \xE2\x80\xA9",
                                           "\xEF\xBB\xBF of byte order",
                                           "not UTF-8: \xFF\xC3( \xF0\x9F",
                                           "half a pair \xED\xA0\xBD, a whole one \xF0\x9F\x94\xA5",
                                           "\xE6\xBC\xA2\xE5\xAD\x97",
                                           std::string(5000, 'x'),
                                           ""};
    std::string log = Calibration(31, 0, 54'000'005);
    for (std::size_t i = 0; i < hostile.size(); ++i) {
        log += Line(100'000'005 + static_cast<long long>(i), hostile[i]);
    }
    log += "200000005 <0x00000001:000> <INFO> <</script>> named\r\n";
    WriteFile("device.log", log);
    EXPECT_EQ(ToldByPage({}), ToldByShow({}));
    const std::string page = ReadFile("report.html");
    EXPECT_EQ(page.find("window.broken"), std::string::npos);
    EXPECT_EQ(page.find('\0'), std::string::npos);
    EXPECT_EQ(page.find("</script>>"), std::string::npos);
}

TEST_F(ReportPage, KeepsTheNewestRowsInTheOrderOfBoots) {
    std::string log = Calibration(31, 0, 54'000'005);
    for (int i = 0; i < 9'500; ++i) {
        log += Line(100'000'005 + i * 1000, "line " + std::to_string(i));
    }
    log += Calibration(10, 40, 554'000'002) + Line(600'000'002, "of the second boot");
    WriteFile("device.log", log);
    const Told all = ToldByShow({});
    ASSERT_EQ(all.size(), 9'503U);
    for (const std::size_t most : {1, 8192, 9000, 10'000}) {
        const std::size_t count = std::min(most, all.size());
        const Told newest(all.end() - static_cast<std::ptrdiff_t>(count), all.end());
        EXPECT_TRUE(ToldByPage({"--rows", std::to_string(most)}) == newest) << most;
        const Json omitted = PageData()["omitted"];
        EXPECT_EQ(omitted["rows"], all.size() - count);
        EXPECT_EQ(omitted["statement"].get<std::string>().empty(), count == all.size());
    }
}

TEST_F(ReportPage, ListsEveryCrashBootAndProcessWithWhatTells) {
    WriteTwoBoots();
    WriteFile("crash.txt", CrashLogAt(2));
    WriteFile("crash.txt.1", CrashLogAt(1));
    ToldByPage({});
    const Json page = PageData();
    ASSERT_EQ(page["boots"].size(), 2U) << page["boots"];
    EXPECT_EQ(page["boots"][1]["processes"], Json({2}));
    EXPECT_NE(page["boots"][1]["proof"].get<std::string>().find("another boot"), std::string::npos);
    EXPECT_LT(page["boots"][1]["last"], page["boots"][0]["first"]);
    ASSERT_EQ(page["processes"].size(), 2U);
    EXPECT_EQ(page["processes"][0]["threads"], 2);
    for (const Json& crash : page["crashes"]) {
        const Json& row = page["rows"].at(crash["row"].get<std::size_t>());
        EXPECT_EQ(row["level"], "CRASH");
        EXPECT_EQ(row["time"], crash["time"]);
        EXPECT_EQ(row["text"], crash["title"]);
    }
    // A crash that is not among the rows is told all the same.
    ToldByPage({"--rows", "1", "--grep", "warm"});
    ASSERT_EQ(PageData()["crashes"].size(), page["crashes"].size());
    EXPECT_TRUE(PageData()["crashes"][0]["row"].is_null());
}
