// Which part nima-post shows, how it prints it, and what it makes of a whole folder.

#include "tests/support/DeviceFiles.h"
#include "tests/support/Post.h"
#include "tests/support/Sandbox.h"
#include "tools/base/Pattern.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include <Diagnostics/CrashApi.h>
#include <Diagnostics/Formats.h>
#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>
#include <Diagnostics/TraceServices.h>

using namespace Nima::Common::System::OS::Diagnostics;
using namespace Nima::Testing;

namespace {

class Select : public Sandbox {};

/// The texts of what `show` and its relatives print as objects, each a line.
std::vector<std::string> Texts(std::vector<std::string> arguments) {
    arguments.insert(arguments.end(), {"--format", "jsonl"});
    const Result result = Post(arguments);
    EXPECT_LE(result.code, 1) << result.errors;
    std::vector<std::string> texts;
    for (const std::string& line : Lines(result.output)) {
        texts.push_back(Json::parse(line)["text"]);
    }
    return texts;
}

using List = std::vector<std::string>;

/// In the minute 16:31.
std::string CalibrationAt(int second, long long counter) {
    return Calibration(counter, "10241631" + TwoDigits(second) + ".54000");
}

std::string LineAt(long long counter, const std::string& level, const std::string& message) {
    return LogLine(counter, "<" + level + "> <Engine> " + message);
}

/// Two boots, whose dates fit no one clock: lines at 16:31:00.1, .2 and .3 in the first; at 16:31:40.1 and .2
/// in the second.
void WriteTwoBoots() {
    WriteFile("device.log", CalibrationAt(0, 54'000'005) + LineAt(100'000'005, "INFO", "warm up") +
                                LineAt(200'000'005, "ERROR", "lamp\r\nof the scanner") +
                                LineAt(300'000'005, "WARN", "page 1 of 2") + CalibrationAt(40, 554'000'002) +
                                LineAt(600'000'002, "INFO", "Lamp again") +
                                LineAt(700'000'002, "WARN", "page 2 of 2"));
}

std::string CrashLogAt(int second) {
    return CrashLogOf({.second = second, .ticks = 800'000'002, .file = "fuser.cpp\r\nLine Numbr: 54"});
}

const List kFirstBoot{"warm up", "lamp", "of the scanner", "page 1 of 2"};

} // namespace

TEST_F(Select, ExpressionsTakeOrLeaveWholeMessages) {
    WriteTwoBoots();
    const auto with = [&](List more) {
        more.insert(more.begin(), {"log", "device.log", "--not", "Calibration"});
        List ofFile = Texts(more);
        more[1] = ".";
        EXPECT_EQ(Texts(more), ofFile);
        return ofFile;
    };
    EXPECT_EQ(with({"--grep", "lamp"}), (List{"lamp", "of the scanner"}));
    EXPECT_EQ(with({"-i", "--grep", "lamp"}), (List{"lamp", "of the scanner", "Lamp again"}));
    // Each has to be found, in whichever line of the message; one that is refused hides all of it.
    EXPECT_EQ(with({"--grep", "scanner", "--grep", "^2.*ERROR"}), (List{"lamp", "of the scanner"}));
    EXPECT_EQ(with({"--not", "scanner", "--not", R"(page \d)"}), (List{"warm up", "Lamp again"}));
    EXPECT_EQ(with({"--grep", "scanner", "--grep", "page"}), List());
    EXPECT_EQ(Texts({"show", ".", "--grep", R"(page \d)", "--last", "1"}), (List{"page 2 of 2"}));

    // Searches that would take for ever end, and are told of.
    WriteFile("evil.log",
              CalibrationAt(0, 54'000'005) + LineAt(100'000'005, "INFO", std::string(5000, 'a') + "b"));
    const Result evil = Post({"log", "evil.log", "--grep", "(a+)+$", "--json"});
    EXPECT_EQ(evil.code, 0);
    EXPECT_EQ(evil.Parsed()["late_findings"]["remarks"][0]["code"], "pattern-limit") << evil.output;

    const Result wrong = Post({"log", "device.log", "--grep", "(a"});
    EXPECT_EQ(wrong.code, 2);
    EXPECT_EQ(Lines(wrong.errors).size(), 1U) << wrong.errors;
}

TEST_F(Select, ARangeComparesTheTimesThatAreShown) {
    WriteTwoBoots();
    WriteFile("crash.txt", CrashLogAt(40));
    const auto between = [](const List& range) {
        List arguments{"log", ".", "--not", "Calibration"};
        arguments.insert(arguments.end(), range.begin(), range.end());
        return Texts(arguments);
    };
    EXPECT_EQ(between({"--until", "16:31:30"}), kFirstBoot);
    EXPECT_EQ(between({"--since", "2026-11-24 16:31:40"}), (List{"Lamp again", "page 2 of 2"}));
    // The first moment belongs to it, the last does not. Lines are at the calibration's date and what their
    // counters are later by.
    const Json lines = Json::parse(Post({"log", "device.log", "--json"}).output)["lines"];
    const std::string first = lines[1]["time"];
    const std::string second = lines[2]["time"];
    EXPECT_EQ(between({"--since", first, "--until", second}), (List{"warm up"}));
    EXPECT_EQ(between({"--since", "boot"}), (List{"Lamp again", "page 2 of 2"}));
    EXPECT_EQ(between({"--since", "boot=1", "--until", "boot=1+100ms"}), (List{"warm up"}));
    EXPECT_EQ(between({"--boot", "-1"}), kFirstBoot);
    EXPECT_EQ(between({"--boot", "0"}), (List{"Lamp again", "page 2 of 2"}));
    EXPECT_EQ(between({"--since", "crash-1m", "--until", "crash-30s"}), kFirstBoot);
    EXPECT_EQ(between({"--around", "crash=1", "--within", "250ms"}), (List{"Lamp again", "page 2 of 2"}));
    // What it is around belongs to it, and so does what has the same time.
    EXPECT_EQ(Texts({"show", ".", "--around", "crash", "--within", "0s", "--not", "Calibration"}),
              (List{"Fatal error reported by a component"}));
    EXPECT_EQ(between({"--since", "end-10s", "--last", "1"}), (List{"page 2 of 2"}));

    const Result timeline =
        Post({"timeline", ".", "-o", "out.json", "--since", "boot", "--not", "Calibration", "--json"});
    EXPECT_EQ(timeline.Parsed()["events"], 2) << timeline.output;
    // On standard output there is nothing else.
    EXPECT_TRUE(Json::parse(Post({"timeline", ".", "-o", "-"}).output).contains("traceEvents"));
    // What its bounds would let belong is counted: all lines of the first boot may be later.
    const Result told = Post({"log", ".", "--since", "boot", "--json"});
    EXPECT_EQ(told.code, 0) << told.errors;
    EXPECT_EQ(told.Parsed()["late_findings"]["remarks"][0]["code"], "range-uncertain") << told.output;
    // Those that are not asked for do not count.
    for (const char* input : {".", "device.log"}) {
        const auto more = [&](const char* expression) {
            const Json late =
                Post({"log", input, "--since", "boot=2", "--grep", expression, "--json"}).Parsed();
            const Json& remarks = late["late_findings"]["remarks"];
            return remarks.empty() ? "" : remarks[0]["sentence"].get<std::string>().substr(0, 6);
        };
        EXPECT_EQ(more("warm up"), "1 more") << input;
        EXPECT_EQ(more("Lamp again"), "") << input;
    }

    for (const List& wrong :
         {List{"--since", "yesterday"}, List{"--around", "crash=2"}, List{"--within", "1s"},
          List{"--since", "boot=3"}, List{"--boot", "3"}, List{"--boot", "-2"},
          List{"--around", "crash", "--since", "boot"}, List{"--around", "crash", "--within", "x"}}) {
        List arguments{"show", "."};
        arguments.insert(arguments.end(), wrong.begin(), wrong.end());
        const Result result = Post(arguments);
        EXPECT_EQ(result.code, 2) << wrong.front() << result.output;
        EXPECT_EQ(Lines(result.errors).size(), 1U) << result.errors;
        EXPECT_EQ(result.output, "");
    }
    // Alone, a log knows of no crash, and nothing that is undated has a time of day.
    EXPECT_EQ(Post({"log", "device.log", "--around", "crash"}).code, 2);
    WriteFile("undated.log", LineAt(100'000'005, "INFO", "one") + LineAt(400'000'005, "INFO", "two"));
    EXPECT_EQ(Post({"log", "undated.log", "--since", "16:31"}).code, 2);
    EXPECT_EQ(Texts({"log", "undated.log", "--since", "+0.2"}), (List{"two"}));
}

TEST_F(Select, ALargeLogIsSearchedForWholeMessagesWithTheirTimes) {
    // Large enough for most of it to be passed over. Stamps fall, threads are late, a message goes on in the
    // next file, and the first lines continue one that is lost.
    std::string log = "needle of a lost message\r\n" + CalibrationAt(0, 54'000'005);
    std::uint64_t noise = 1;
    for (int i = 0; i < 30'000; ++i) {
        noise = noise * 6364136223846793005U + 1442695040888963407U;
        const auto late = static_cast<long long>(noise >> 40) % 90'000'000;
        const long long counter = i * 40'000'003LL % 999'999'999 + i / 25 + 1'000'000'000;
        const std::string thread = "0000000" + std::to_string(1 + (noise >> 60) % 7);
        const bool rare = i % 9'001 == 9'000;
        log += std::to_string(counter - (i % 5 == 0 ? late : 0)) + " <0x" + thread + ":000> <" +
               (i % 7'001 == 7'000 ? "FATAL" : "INFO") + "> <" + (i % 8'001 == 8'000 ? "Rare" : "Engine") +
               "> page " + std::to_string(i) + (rare ? " with\r\n  a needle 17" : "") +
               (i % 5'003 == 5'002 ? " Needle" : "") + "\r\n";
    }
    const std::size_t half = log.find("  a needle", log.size() / 2);
    WriteFile("device.log.1", log.substr(0, half));
    WriteFile("device.log", log.substr(half));
    const List all = Lines(Post({"log", "device.log"}).output);
    ASSERT_GT(all.size(), 30'000U);
    const auto messagesWith = [&](const List& any) {
        List wanted;
        List message;
        const auto end = [&] {
            const bool has = std::any_of(message.begin(), message.end(), [&](const std::string& line) {
                return std::any_of(any.begin(), any.end(), [&](const std::string& text) {
                    return line.find(text) != std::string::npos;
                });
            });
            wanted.insert(wanted.end(), message.begin(), has ? message.end() : message.begin());
            message.clear();
        };
        for (const std::string& line : all) {
            if (line.find(" <0x") != std::string::npos) {
                end();
            }
            message.push_back(line);
        }
        end();
        return wanted;
    };
    const auto shownWith = [](List more) {
        more.insert(more.begin(), {"log", "device.log"});
        return Lines(Post(more).output);
    };
    const List needles = messagesWith({"needle"});
    ASSERT_GE(needles.size(), 7U);
    EXPECT_EQ(shownWith({"--grep", "needle"}), needles);
    EXPECT_EQ(shownWith({"--text", "needle"}), needles);
    EXPECT_EQ(shownWith({"--grep", "a? ?ne{2}dle( 1|$| of)"}), needles);
    EXPECT_EQ(shownWith({"--grep", "NEEDLE", "-i"}), messagesWith({"needle", "Needle"}));
    EXPECT_EQ(shownWith({"--grep", "needle", "--last", "3"}), List(needles.end() - 3, needles.end()));
    EXPECT_EQ(shownWith({"--not", "page 29999", "--last", "2"}), List(all.end() - 3, all.end() - 1));
    EXPECT_EQ(shownWith({"--grep", "needle", "--not", "lost"}), List(needles.begin() + 1, needles.end()));
    // What continues a message that is lost could be of any level.
    EXPECT_EQ(shownWith({"--level", "FATAL"}), messagesWith({"lost", "<FATAL>"}));
    EXPECT_EQ(shownWith({"--tracer", "Rare", "--level", "INFO"}), messagesWith({"lost", "<Rare>"}));
}

TEST(Pattern, FindsAmongManyLinesWhatItFindsInOne) {
    const List lines{"100 <0x1> page 17 of 20",
                     "foo",
                     "bar.baz  qux",
                     "caf\xC3\xA9 \xFF torn \xC3",
                     "aaaa",
                     "",
                     "x=1,y=2"};
    std::string all;
    for (const std::string& line : lines) {
        all += line + "\r\n";
    }
    std::string problem;
    for (const char* expression :
         {"^foo$",   "foo\\b",  "\\Bge",   "^100.*20$",   "page (17|18)$", "[0-9]+ of",  "[^0-9]$",
          "o\\s*$",  "q?x=",    "(?<=,)y", "a{4}$",       "a++$",          "^$",         "a*?$",
          "(a+)+$",  "z|torn",  ".\\.baz", "\\.baz +qux", "[\\w.]+  q",    "\\Qbar.\\E", "{1",
          "(?i)FOO", "$|zebra", "\\xe9",   "torn .*",     "(a|b)\\1",      "]",          "\\d+,y"}) {
        const auto pattern = NimaPost::Pattern::Compile(expression, false, problem);
        ASSERT_TRUE(pattern) << problem;
        const bool inOne = std::any_of(lines.begin(), lines.end(),
                                       [&](const std::string& line) { return pattern->IsIn(line); });
        EXPECT_TRUE(pattern->MayBeIn(all) || !inOne) << expression;
    }
    for (const char* expression : {"zebra", "zeb.?ra", "^[0-9]{4}", "(?:page|foo)[a-f]", "20\\b.foo"}) {
        EXPECT_FALSE(NimaPost::Pattern::Compile(expression, false, problem)->MayBeIn(all)) << expression;
    }
    EXPECT_TRUE(NimaPost::Pattern::Literal("CAF\xC3\x89", true).MayBeIn(all));
}

TEST_F(Select, ShowMergesWhatTheLibraryWroteIntoOneStory) {
    InGoodChild([] {
        SysTraceConfigure();
        TraceServices::ConfigureDefaultLog(L"device.log", 1 << 20, 0, true);
        NimaTrace tracer("Engine");
        TRACE_RING_HANDLE panel = nullptr;
        GetTraceRingBuffer(10, &panel);
        for (std::uint32_t i = 0; i < 3; ++i) {
            tracer.WriteWarnV("line %u", i);
            RTTrace_1(SYSTRACE_ID(9, 0, 3), i);
            WriteEventToRingBuffer(panel, 0, 5, i, 2, 3, 4);
        }
    });
    const Result all = Post({"show", ".", "--json", "--grep", "line [0-9]|event 0x3|code 0x5"});
    ASSERT_EQ(all.code, 0) << all.errors;
    const Json json = all.Parsed();
    EXPECT_EQ(json["schema"], 1);
    std::vector<std::string> kinds;
    std::string before;
    for (const Json& event : json["events"]) {
        kinds.push_back(event["kind"]);
        EXPECT_LE(before, event["time"].get<std::string>());
        before = event["time"];
        EXPECT_FALSE(event["file"].get<std::string>().empty());
    }
    for (const char* kind : {"text", "binary", "ring"}) {
        EXPECT_EQ(std::count(kinds.begin(), kinds.end(), kind), 3) << kind << all.output;
    }
    // The views are parts of it.
    EXPECT_EQ(Texts({"systrace", ".", "--component", "9"}).size(), 3U);
    EXPECT_EQ(Texts({"rings", ".", "--grep", "code 0x5"}).size(), 3U);
    EXPECT_EQ(Texts({"log", ".", "--level", "WARN+", "--tracer", "Engine"}),
              (List{"line 0", "line 1", "line 2"}));
    // So are they of single files, with their own times.
    EXPECT_EQ(Texts({"systrace", "SysTrace Buffer", "--component", "9", "--grep", "event 0x3 0x[12]"}).size(),
              2U);
    EXPECT_EQ(Texts({"rings", "System Ring Buffers", "--not", "0x1 0x2 0x3", "--grep", "code 0x5"}).size(),
              2U);
    EXPECT_EQ(Post({"systrace", "SysTrace Buffer", "--since", "end+1s", "--format", "short"}).output, "");
}

TEST_F(Select, EveryFormatHoldsTheSame) {
    WriteTwoBoots();
    const Result csv = Post({"show", ".", "--format", "csv", "--grep", "page"});
    ASSERT_EQ(Lines(csv.output).size(), 3U) << csv.output;
    EXPECT_EQ(Lines(csv.output)[0], "time,certainty,kind,file,boot,process,thread,level,name,text");
    EXPECT_NE(csv.output.find(",text,device.log,1,1,0x00000001,WARN,Engine,page 1 of 2\n"), std::string::npos)
        << csv.output;
    const Result text = Post({"show", ".", "--grep", "page 1", "--color", "always"});
    EXPECT_NE(text.output.find("\x1b[33mWARN     Engine: page 1 of 2"), std::string::npos) << text.output;
    const Result brief = Post({"log", "device.log", "--format", "short", "--grep", "page 1"});
    EXPECT_EQ(brief.output.substr(0, 6) + brief.output.substr(13), "16:31:WARN Engine: page 1 of 2\n");
    EXPECT_EQ(Post({"log", "device.log", "--json"}).output,
              Post({"log", "device.log", "--format", "json"}).output);
    // A field with what divides fields is quoted.
    WriteFile("device.log", CalibrationAt(0, 54'000'005) + LineAt(100'000'005, "INFO", R"(a "b", c)"));
    EXPECT_NE(Post({"log", "device.log", "--format", "csv"}).output.find(R"(,Engine,"a ""b"", c")"),
              std::string::npos);
    EXPECT_EQ(Post({"crash", "device.log", "--format", "csv"}).code, 2);
}

TEST_F(Select, ASummaryTellsSilencesOnlyBetweenTimesThatAreKnown) {
    // Rolled after six seconds, in which lines do not tell where the silence was.
    WriteFile("device.log.1", CalibrationAt(0, 54'000'005) + LineAt(100'000'005, "INFO", "page 1") +
                                  LineAt(50'000'011, "INFO", "page 2"));
    WriteFile("device.log", CalibrationAt(6, 54'000'011) + LineAt(200'000'011, "INFO", "page 3"));
    const auto gaps = [] {
        const Json json = Post({"summary", ".", "--json"}).Parsed();
        std::string all;
        for (const Json& gap : json["gaps"]) {
            all += gap["from"].get<std::string>().substr(17, 6) + " to " +
                   gap["until"].get<std::string>().substr(17, 6) + ": " + gap["length_ns"].dump() + "|";
        }
        return all;
    };
    EXPECT_EQ(gaps(), "00.054 to 06.054: 5000000000|");
    const std::string text = Post({"summary", "."}).output;
    EXPECT_NE(text.find("  5.000 s in all, between 2026-11-24 16:31:00.054"), std::string::npos) << text;
    // Between lines that are dated one by one there is nothing.
    std::filesystem::remove("device.log.1");
    WriteFile("device.log",
              "01261024163100.1000 <0x00000001:000> <INFO> <Engine> page 1\r\n"
              "01261024163106.1000 <0x00000001:000> <INFO> <Engine> page 2\r\n");
    EXPECT_EQ(gaps(), "00.001 to 06.001: 6000000000|");
}

TEST_F(Select, ABareFolderGivesItsSummary) {
    WriteTwoBoots();
    WriteFile("crash.txt", CrashLogAt(40));
    const Result result = Post({"."});
    EXPECT_EQ(result.code, 0) << result.errors;
    EXPECT_EQ(result.output, Post({"summary", "."}).output);
    EXPECT_LE(Lines(result.output).size(), 60U);
    for (const char* part : {"1 crash\n", "fuser.cpp:54, code 0x31AC05", "process 2, perhaps boot 2",
                             "nima-post show . --around crash --within 5s"}) {
        EXPECT_NE(result.output.find(part), std::string::npos) << part << result.output;
    }
    const Json json = Post({"summary", ".", "--json"}).Parsed();
    EXPECT_EQ(json["crashes"][0]["cause"]["file"], "fuser.cpp");
    EXPECT_EQ(json["processes"].size(), 2U);
    EXPECT_EQ(json["counts"][0]["name"], "Engine");
    EXPECT_EQ(json["counts"][0]["levels"]["WARN"], 2);
    // A folder of a command's name is no command.
    std::filesystem::create_directory("log");
    EXPECT_NE(Post({"log"}).errors.find("FILE is required"), std::string::npos);
    EXPECT_EQ(Post({"./log"}).code, 2);

    // A folder with far too much of everything still fits the screen.
    std::string much;
    for (int i = 0; i < 40; ++i) {
        WriteFile("crash.txt." + std::to_string(i), CrashLogAt(i));
        much += CalibrationAt(i, 54'000'100 - i) + std::to_string(100'000'100 - i) +
                " <0x00000001:000> <ERROR> <T" + std::to_string(i) + "> " + std::string(500, 'x') + "\r\n";
    }
    WriteFile("much.log", much);
    const std::string full = Post({"."}).output;
    EXPECT_LE(Lines(full).size(), 60U) << full;
}

TEST_F(Select, WhatIsMisspeltIsToldInOneLineWithWhatWasMeant) {
    WriteTwoBoots();
    for (const auto& [arguments, meant] : {std::pair(List{"sumary", "."}, "did you mean summary?"),
                                           {List{"show", ".", "--sinse", "boot"}, "--since?"},
                                           {List{"log", "device.log", "--format", "jsno"}, "--format"},
                                           {List{"diff", ".", ".", "device.log"}, "too many"},
                                           {List{"show"}, "FOLDER is required"},
                                           {List{"nothere/"}, "no command or file"},
                                           {List{"log", ".", "--since", ""}, "--since: empty"},
                                           {List{"log", ".", "--process", "-1"}, "above 0"},
                                           {List{"log", ".", "--max-line", "0"}, "no size"},
                                           {List{"log", ".", "--max-unpacked", "16E"}, "no size"},
                                           {List{"log", "-f", "device.log", "--last", "1"}, "takes only"},
                                           {List{}, "a command or a folder is needed"}}) {
        const Result result = Post(arguments);
        EXPECT_EQ(result.code, 2);
        EXPECT_EQ(Lines(result.errors).size(), 1U) << result.errors;
        EXPECT_NE(result.errors.find(meant), std::string::npos) << result.errors;
    }
}
