/// Recordings of nima-ctl: the levels that they open and close, and the notes of those that were killed.

#include "tests/support/Ctl.h"

#include <algorithm>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace Nima::Testing {

namespace {

class CtlRecordTest : public Sandbox {};

} // namespace

TEST_F(CtlRecordTest, ASegmentThatIsCutMeanwhileIsNoCrash) {
    { const Host device(Trace); }
    const auto header = std::make_unique<Header>();
    const std::string errorsPath = directory() + ".running";
    Running recording({"record", "--for", "1h", "--level", "6:2", "-o", "out"}, errorsPath.c_str());
    Await([&] { return (*header)->liveFilter[WordOf(2)] != 0; });
    ASSERT_EQ(::truncate(kTrace, 0), 0);
    EXPECT_EQ(recording.EndBy(0), 2);
    const std::string errors = ReadFile(errorsPath);
    std::filesystem::remove(errorsPath);
    EXPECT_NE(errors.find("another process cut the segment"), std::string::npos) << errors;
    EXPECT_FALSE(Exists("out"));
    EXPECT_EQ(ReadFile(kTrace), "");
}

TEST_F(CtlRecordTest, RecordsForATimeIntoAFolder) {
    const Host device(Trace);
    const Header header;
    const Json result =
        Ctl({"record", "--for", "100ms", "--level", "6:2", "5:0", "-o", "out", "--json"}).Parsed();
    ASSERT_EQ(result["opened_levels"].size(), 1U);
    EXPECT_EQ(result["opened_levels"][0]["component"], 6);
    EXPECT_EQ(result["opened_levels"][0]["level"], 2);
    EXPECT_EQ(header->liveFilter[WordOf(2)], 0U);
    EXPECT_EQ(header->liveFilter[0], 0xFFFFFFFF);
    EXPECT_EQ(Listing("."), (std::vector<std::string>{kTrace, kRings, "out"}));
    EXPECT_EQ(Listing("out"), (std::vector<std::string>{"SysTrace.bin", "manifest.json", "rings.txt"}));
    EXPECT_TRUE(HasRecordOf(6, "out/SysTrace.bin"));
    const Json manifest = Json::parse(ReadFile("out/manifest.json"));
    EXPECT_EQ(manifest["recording"]["opened_levels"], result["opened_levels"]);
    EXPECT_EQ(manifest["files"].size(), 2U);

    for (const std::vector<std::string>& wrong :
         {std::vector<std::string>{"--for", "1s", "--level", "6:2", "-o", "out"},
          {"--for", "1s", "--level", "6:2", "-o", "no/such/folder"},
          {"--for", "1x", "--level", "6:2", "-o", "new"},
          {"--for", "-1s", "--level", "6:2", "-o", "new"},
          {"--for", "1s", "--level", "6:4", "-o", "new"}}) {
        std::vector<std::string> call{"record"};
        call.insert(call.end(), wrong.begin(), wrong.end());
        EXPECT_EQ(Ctl(call).code, 2) << wrong[1] << wrong[3] << wrong[5];
    }
    EXPECT_FALSE(Exists("new"));
    EXPECT_EQ(Listing("out").size(), 3U);
}

TEST_F(CtlRecordTest, ARecordingClosesJustWhatItOpened) {
    { const Host device(Trace); }
    const Header header;
    volatile std::uint32_t& level2 = header->liveFilter[WordOf(2)];
    for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGKILL}) {
        level2 = 0;
        Running recording(
            {"record", "--for", "1h", "--level", "6:2", "7:2", "8:2", "-o", "out" + std::to_string(signal)});
        Await([&] { return level2 != 0; });
        // It does not hold the turn meanwhile. Component 9 is not its own, and 7 is so no longer.
        EXPECT_EQ(Ctl({"level", "9", "2"}).code, 0);
        EXPECT_EQ(Ctl({"level", "7", "2"}).code, 0);
        EXPECT_EQ(level2, Bit(6) | Bit(7) | Bit(8) | Bit(9));
        EXPECT_EQ(recording.EndBy(signal), signal == SIGKILL ? -1 : 1);
        if (signal == SIGKILL) {
            EXPECT_EQ(level2, Bit(6) | Bit(7) | Bit(8) | Bit(9));
            const Result next = Ctl({"status", "--for", "0.01"});
            EXPECT_NE(next.errors.find("level 2: component 6, component 8"), std::string::npos)
                << next.errors;
        }
        EXPECT_EQ(level2, Bit(7) | Bit(9)) << signal;
        EXPECT_EQ(Exists("out" + std::to_string(signal) + "/SysTrace.bin"), signal != SIGKILL);
        EXPECT_EQ(Ctl({"status", "--for", "0.01"}).errors, "");
    }
    EXPECT_EQ(Listing("."), (std::vector<std::string>{kTrace, kRings, "out1", "out15", "out2", "out9"}));
}

TEST_F(CtlRecordTest, TheLastOfSeveralRecordingsCloses) {
    { const Host device(Trace); }
    const Header header;
    volatile std::uint32_t& level2 = header->liveFilter[WordOf(2)];
    const auto await = [&](std::uint32_t wanted) { Await([&] { return level2 == wanted; }); };
    Running first({"record", "--for", "1h", "--level", "6:2", "-o", "first"});
    await(Bit(6));
    Running second({"record", "--for", "1h", "--level", "6:2", "7:2", "-o", "second"});
    await(Bit(6) | Bit(7));
    EXPECT_EQ(first.EndBy(SIGINT), 1);
    EXPECT_EQ(level2, Bit(6) | Bit(7));
    EXPECT_EQ(second.EndBy(SIGINT), 1);
    EXPECT_EQ(level2, 0U);

    // A note of another segment, and one that is none, are left alone.
    const std::string foreign =
        "nima-ctl record 1\nsegment 0000000000000001 0000000000000001\n" +
        std::string("ffffffff ffffffff ffffffff ffffffff\n") + "ffffffff ffffffff ffffffff ffffffff\n" +
        "ffffffff ffffffff ffffffff ffffffff\n" + "ffffffff ffffffff ffffffff ffffffff\n";
    WriteFile("nima-ctl.aaaaaa.record", foreign);
    WriteFile("nima-ctl.bbbbbb.record", "something else");
    WriteFile("nima-ctl.cccccc.record", "");
    const Result status = Ctl({"status", "--for", "0.01"});
    EXPECT_EQ(status.code, 0);
    EXPECT_EQ(CountOf(status.errors, "is left alone"), 2U) << status.errors;
    EXPECT_EQ(ReadFile("nima-ctl.aaaaaa.record"), foreign);
    EXPECT_EQ(ReadFile("nima-ctl.bbbbbb.record"), "something else");
    EXPECT_FALSE(Exists("nima-ctl.cccccc.record"));
    EXPECT_EQ(header->liveFilter[0], 0xFFFFFFFF);
}

TEST_F(CtlRecordTest, CountsAcrossAClearAndTheEndOfTheIndex) {
    constexpr std::uint32_t kPlausible = 1U << 28;
    Host device(Trace);
    const Header header;
    {
        const Meanwhile clears([&] {
            Await([&] { return header->liveFilter[WordOf(2)] != 0; });
            ::usleep(300000);
            EXPECT_EQ(Ctl({"clear"}).code, 0);
        });
        const Result record = Ctl({"record", "--for", "1s", "--level", "6:2", "-o", "cleared", "--json"});
        EXPECT_EQ(record.code, 0) << record.errors;
        EXPECT_TRUE(record.Finds("trace-cleared")) << record.output;
        EXPECT_EQ(record.Parsed()["cleared"], true);
        EXPECT_GT(record.Parsed()["claimed_entries"], 0U);
        EXPECT_LT(record.Parsed()["claimed_entries"], kPlausible);
    }
    device.EndBy(SIGKILL);
    EXPECT_EQ(Ctl({"clear"}).code, 0);
    header->writeIndex = 0xFFFFFFF0;
    header->wrapCount = 4095;
    const Host later(Trace);
    const Json record = Ctl({"record", "--for", "100ms", "--level", "6:2", "-o", "later", "--json"}).Parsed();
    EXPECT_EQ(record["cleared"], false);
    EXPECT_GT(record["claimed_entries"], 0U);
    EXPECT_LT(record["claimed_entries"], kPlausible);
    const Json rate = Ctl({"status", "--for", "50ms", "--json"}).Parsed()["systrace"]["rate"];
    EXPECT_GT(rate["entries_per_second"], 0.0);
    EXPECT_LT(rate["entries_per_second"], kPlausible);
}

TEST_F(CtlRecordTest, SaysAtOnceThatAFilterIsSetAside) {
    { const Host device(Trace); }
    const Header header;
    header.SetFilterAside();
    const std::string errors = directory() + ".running";
    Running recording({"record", "--for", "1h", "--level", "6:2", "--wait", "100ms", "-o", "out"},
                      errors.c_str());
    Await([&] { return ReadFile(errors).find("nima-ctl repair") != std::string::npos; });
    EXPECT_EQ(header->liveFilter[WordOf(2)], Bit(6));
    EXPECT_EQ(recording.EndBy(SIGINT), 1);
    std::filesystem::remove(errors);
    for (int i = 0; i < SYSTRACE_FILTER_WORDS; ++i) {
        EXPECT_EQ(header->liveFilter[i], 0U);
        EXPECT_EQ(header->savedFilter[i], i < 8 ? 0xFFFFFFFF : 0U);
    }
}

TEST_F(CtlRecordTest, ASignalWhileLevelsAreOpenedLeavesThemClosed) {
    { const Host device(Trace); }
    const Header header;
    const auto check = [&](const std::string& when) {
        EXPECT_EQ(header->liveFilter[WordOf(2)], 0U) << when;
        EXPECT_EQ(header->savedFilter[WordOf(2)], 0U) << when;
        const auto names = Listing(".");
        EXPECT_TRUE(std::none_of(names.begin(), names.end(), [](const std::string& name) {
            return name.ends_with(".record");
        })) << when;
    };
    for (int i = 0; i < 5; ++i) {
        Running recording({"record", "--for", "1h", "--level", "6:2", "-o", "out" + std::to_string(i)});
        Await([&] { return i == 0 || header->liveFilter[WordOf(2)] != 0; });
        ::usleep(static_cast<useconds_t>(i * 40000));
        recording.EndBy(SIGINT);
        check(std::to_string(i));
    }
    // Nor does it wait for a dump's end.
    header.SetFilterAside();
    Running recording({"record", "--for", "1h", "--level", "6:2", "--wait", "1h", "-o", "held"});
    Await([&] { return header->liveFilter[WordOf(2)] != 0; });
    EXPECT_EQ(recording.EndBy(SIGTERM), 2);
    check("held");
    EXPECT_FALSE(Exists("held"));
}

TEST_F(CtlRecordTest, WhatIsOpenedForGoodStaysOpenAfterAKill) {
    { const Host device(Trace); }
    const Header header;
    volatile std::uint32_t& level2 = header->liveFilter[WordOf(2)];
    const auto await = [&](std::uint32_t wanted) { Await([&] { return (level2 & wanted) == wanted; }); };
    const auto aRecordingRuns = [] {
        const auto names = Listing(".");
        return std::any_of(names.begin(), names.end(), [](const std::string& name) {
            const int file = name.ends_with(".record") ? ::open(name.c_str(), O_RDONLY | O_CLOEXEC) : -1;
            const bool held = file >= 0 && ::flock(file, LOCK_SH | LOCK_NB) != 0;
            ::close(file);
            return held;
        });
    };
    {
        Running killed({"record", "--for", "1h", "--level", "6:2", "7:2", "8:2", "-o", "killed"});
        await(Bit(6) | Bit(7) | Bit(8));
    }
    // Longer than a verb waits before it leaves the note for the next one.
    const int segment = ::open(kTrace, O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(segment, LOCK_EX), 0);
    Running recording({"record", "--for", "1h", "--level", "7:2", "-o", "out"});
    {
        const Meanwhile level([] { EXPECT_EQ(Ctl({"level", "6", "2"}).code, 0); });
        ::usleep(2500000);
        ASSERT_EQ(::flock(segment, LOCK_UN), 0);
    }
    ::close(segment);
    Await([&] { return aRecordingRuns(); });
    await(Bit(7));
    EXPECT_EQ(Ctl({"status", "--for", "10ms"}).code, 0);
    EXPECT_EQ(level2, Bit(6) | Bit(7));
    EXPECT_EQ(recording.EndBy(SIGINT), 1);
    EXPECT_EQ(Ctl({"status", "--for", "10ms"}).errors, "");
    EXPECT_EQ(level2, Bit(6));
}

TEST_F(CtlRecordTest, UsesAnEmptyFolderAsItIs) {
    { const Host device(Trace); }
    std::filesystem::create_directory("out");
    ASSERT_EQ(::chmod("out", 0700), 0);
    struct stat before {};
    struct stat after {};
    ASSERT_EQ(::stat("out", &before), 0);
    EXPECT_EQ(Ctl({"record", "--for", "10ms", "--level", "6:7", "-o", "out"}).code, 2);
    EXPECT_EQ(Ctl({"record", "--for", "10ms", "--level", "6:2", "-o", "out"}).code, 0);
    ASSERT_EQ(::stat("out", &after), 0);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode, before.st_mode);
    std::filesystem::create_directory("here");
    std::filesystem::current_path("here");
    EXPECT_EQ(Ctl({"record", "--for", "10ms", "--level", "6:2", "--directory", "..", "-o", "."}).code, 0);
    EXPECT_EQ(Listing(".").size(), 3U);
    EXPECT_EQ(Json::parse(ReadFile("manifest.json"))["directory"], "..");
    std::filesystem::current_path("..");
}

TEST_F(CtlRecordTest, AFullDiskLeavesThePartThatFits) {
    { const Host device(Trace); }
    EXPECT_EQ(Ctl({"clear"}).code, 0);
    const auto record = [](rlim_t bytes, const std::string& folder) {
        std::signal(SIGXFSZ, SIG_IGN);
        const rlimit limit{bytes, bytes};
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
        return Ctl({"record", "--for", "10ms", "--level", "6:2", "-o", folder});
    };
    // The rings have a hundred records.
    EXPECT_EQ(Ctl({"mark", "something"}).code, 0);
    {
        const Meanwhile some([&] {
            const Result result = record(2000, "some");
            EXPECT_EQ(result.code, 1) << result.errors;
            EXPECT_NE(result.errors.find("The folder lacks files"), std::string::npos) << result.errors;
            EXPECT_EQ(Listing("some"), std::vector<std::string>{"SysTrace.bin"});
        });
    }
    const Meanwhile none([&] {
        EXPECT_EQ(record(400, "none").code, 2);
        EXPECT_FALSE(Exists("none"));
    });
}

} // namespace Nima::Testing
