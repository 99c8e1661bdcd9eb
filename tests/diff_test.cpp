// How nima-post compares two devices, or two crashes.

#include "tests/support/DeviceFiles.h"
#include "tests/support/Post.h"
#include "tests/support/Sandbox.h"

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

using namespace Nima::Testing;

namespace {

class Diff : public Sandbox {
  protected:
    void SetUp() override {
        Sandbox::SetUp();
        std::filesystem::create_directory("a");
        std::filesystem::create_directory("b");
    }
};

constexpr long long kMillisecond = 1'000'000;

/// As the performance counter shows a time: seconds and nanoseconds added up.
long long Counter(long long milliseconds) {
    return 100 + milliseconds / 1000 + milliseconds % 1000 * kMillisecond;
}

std::string Line(long long milliseconds, const std::string& level, const std::string& tracer,
                 const std::string& message) {
    return LogLine(Counter(milliseconds), "<" + level + "> <" + tracer + "> " + message);
}

/// `perSecond` pages for ten seconds.
std::string Pages(int perSecond) {
    std::string text;
    for (int i = 0; i < 10 * perSecond; ++i) {
        text +=
            Line(i * 1000LL / perSecond, "INFO", "Scanner", "page " + std::to_string(i) + " of 0x1f, 3.5 mm");
    }
    return text;
}

std::string PagesWithWarnings() {
    std::string log = Pages(10);
    for (const auto& [milliseconds, message] : {std::pair(3000, "early"), {8000, "late"}}) {
        log.insert(log.find(std::to_string(Counter(milliseconds))),
                   Line(milliseconds - 1, "WARN", "Scanner", message));
    }
    return log;
}

/// "Scanner/lamp # is cold 3, Fax/* 2": a name's whole is a star.
std::string Told(const Json& list) {
    std::string told;
    for (const Json& each : list) {
        told += (told.empty() ? "" : ", ") + each["name"].get<std::string>() + "/" +
                (each["message"].is_null() ? "*" : each["message"].get<std::string>()) +
                (each.contains("count") ? " " + std::to_string(each["count"].get<int>()) : "");
    }
    return told;
}

} // namespace

TEST_F(Diff, WhatOnlyOneSaysAndOtherRatesAreTold) {
    WriteFile("a/device.log", Pages(10) + Line(9950, "WARN", "Scanner", "lamp 12 is cold") +
                                  Line(9951, "WARN", "Scanner", "lamp 7 is cold") +
                                  Line(9952, "INFO", "Fax", "dials +493012345") +
                                  Line(9953, "INFO", "Fax", "busy") +
                                  Line(9954, "INFO", "Scanner", "id 3f2a at -5"));
    WriteFile("b/device.log", Pages(25) + Line(9970, "ERROR", "Scanner", "belt slipped") +
                                  Line(9971, "INFO", "Scanner", "id 9bc1 at 77"));
    const Result result = Post({"diff", "a", "b", "--json"});
    ASSERT_EQ(result.code, 0) << result.errors;
    const Json json = result.Parsed();
    EXPECT_EQ(Told(json["only_first"]), "Fax/* 2, Scanner/lamp # is cold 2");
    EXPECT_EQ(Told(json["only_second"]), "Scanner/belt slipped 1");
    EXPECT_EQ(Told(json["rates"]), "Scanner/page # of #, # mm, Scanner/*");
    EXPECT_NEAR(json["rates"][0]["times"].get<double>(), 2.5, 0.05);
    EXPECT_NEAR(json["first"]["seconds"].get<double>(), 9.95, 0.05);
    const std::string text = Post({"diff", "a", "b"}).output;
    EXPECT_NE(text.find("2x  tracer Fax"), std::string::npos) << text;
    EXPECT_NE(text.find("2.5 times as often)  INFO  Scanner  page #"), std::string::npos) << text;
    EXPECT_NE(Post({"diff", "b", "a"}).output.find("1/2.5 as often"), std::string::npos);
    EXPECT_NE(Post({"diff", "a", "a"}).output.find("no tracer, event or message is only in one"),
              std::string::npos);
    WriteFile("b/device.log", Pages(19));
    EXPECT_EQ(Told(Post({"diff", "a", "b", "--json"}).Parsed()["rates"]), "");
    EXPECT_EQ(Post({"diff", "a", "nowhere"}).code, 2);
}

TEST_F(Diff, CrashesAreComparedByWhatCameBeforeThem) {
    const auto crash = [](int milliseconds) {
        return CrashLogOf({.second = 30 + milliseconds / 1000, .ticks = Counter(milliseconds)});
    };
    WriteFile("a/device.log", PagesWithWarnings());
    WriteFile("a/crash.txt.1", crash(3500));
    WriteFile("a/crash.txt", crash(8500));
    const Json json =
        Post({"diff", "a", "a", "--crash", "1", "--crash", "2", "--within", "2", "--json"}).Parsed();
    EXPECT_EQ(Told(json["only_first"]), "Scanner/early 1") << json;
    EXPECT_EQ(Told(json["only_second"]), "Scanner/late 1");
    EXPECT_EQ(json["first"]["records"], 21) << json;
    const Result none = Post({"diff", "a", "a", "--crash", "3"});
    EXPECT_EQ(none.code, 2);
    EXPECT_NE(none.errors.find("a: no crash 3; it tells of 2 crashes"), std::string::npos) << none.errors;
}

TEST_F(Diff, ComparesOnlyWhatIsSelected) {
    WriteFile("a/device.log", PagesWithWarnings());
    WriteFile("b/device.log", Pages(10));
    const auto onlyFirst = [](std::vector<std::string> selection) {
        selection.insert(selection.begin(), {"diff", "a", "b", "--json"});
        return Told(Post(selection).Parsed()["only_first"]);
    };
    EXPECT_EQ(onlyFirst({}), "Scanner/early 1, Scanner/late 1");
    EXPECT_EQ(onlyFirst({"--until", "start+5s"}), "Scanner/early 1");
    EXPECT_EQ(onlyFirst({"--around", "end-2s", "--within", "1"}), "Scanner/late 1");
    EXPECT_EQ(onlyFirst({"--not", "LATE", "-i"}), "Scanner/early 1");
    EXPECT_EQ(onlyFirst({"--grep", "page"}), "");
    EXPECT_EQ(Post({"diff", "a", "b", "--process", "9"}).code, 2);
    EXPECT_EQ(Post({"diff", "a", "b", "--crash", "1", "--around", "end", "--within", "1"}).code, 2);
}
