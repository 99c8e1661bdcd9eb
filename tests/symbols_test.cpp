// Addresses of stack traces, resolved by programs, libraries and debug files of several builds.

#include "tests/support/Page.h"
#include "tests/support/Post.h"
#include "tests/support/Sandbox.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <unistd.h>

using namespace Nima::Testing;
namespace fs = std::filesystem;

namespace {

void Do(const std::string& command) {
    ASSERT_EQ(std::system(("exec 2>/dev/null; " + command).c_str()), 0) << command; // NOLINT
}

std::string OutputOf(const std::string& command) {
    return CapturedOutput([&] { Do(command); });
}

/// "host.cpp:31", the line that ends with the comment.
std::string LineOf(const std::string& mark, const std::string& source = "host.cpp") {
    const std::vector<std::string> lines = Lines(ReadFile(std::string(SOURCES) + "/" + source));
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (lines[i].ends_with("// " + mark)) {
            return source + ":" + std::to_string(i + 1);
        }
    }
    return "no line is marked " + mark;
}

/// "Jam<host.cpp:28 Pull<host.cpp:32 main@host.cpp:70 ": the calls that were resolved, without parameters and
/// folders. Only those of files named in `sources`; candidates of one frame are parted by "|".
std::string Calls(const Json& symbols) {
    std::string told;
    for (const Json& frame : symbols["frames"]) {
        for (const Json& candidate : frame) {
            told += &candidate != &frame.front() ? "| " : "";
            for (const Json& call : candidate["calls"]) {
                const std::string file = call["file"].is_null() ? "" : fs::path(call["file"]).filename();
                if (file == "host.cpp" || file == "library.cpp" || file == "arm.cpp") {
                    std::string name = call["function"];
                    name = name.substr(0, name.find('(', 1));
                    name = name.substr(name.rfind("::") == std::string::npos ? 0 : name.rfind("::") + 2);
                    told += name;
                    told += call["inlined"].get<bool>() ? "<" : "@";
                    told += file;
                    told += ":" + std::to_string(call["line"].get<int>()) + " ";
                }
            }
        }
    }
    return told;
}

class Symbols : public Sandbox {
  protected:
    void SetUp() override {
        Sandbox::SetUp();
        fs::create_directory("run");
        fs::create_directory("symbols");
    }

    /// Lets a copy of the host die. Returns the file of its first entry into the handler.
    static std::string Die(const std::string& way, const std::string& host = "symbols_host",
                           const std::string& strip = "") {
        fs::remove_all("run");
        fs::create_directory("run");
        for (const std::string& file : {std::string(HOSTS) + "/" + host, std::string(LIBRARY)}) {
            std::string command = strip.empty() ? "cp " : OBJCOPY " ";
            for (const std::string& word : {strip, file, "run/" + fs::path(file).filename().string()}) {
                command += word;
                command += ' ';
            }
            Do(command);
        }
        [[maybe_unused]] const int died = std::system(
            ("cd run && LD_LIBRARY_PATH=. ./" + host + " " + way + " >out 2>&1").c_str()); // NOLINT
        for (const std::string& name : Listing("run")) {
            if (name.starts_with("stacktrace") && name.ends_with("-1.txt")) {
                fs::copy_file("run/" + name, name, fs::copy_options::overwrite_existing);
                return name;
            }
        }
        return "no file";
    }

    static Result Crash(const std::string& file, const std::string& symbols = "symbols") {
        Result result = Post({"crash", file, "--symbols", symbols, "--json"});
        EXPECT_LE(result.code, 1) << result.errors;
        return result;
    }
};

void Keep(const std::string& host = "symbols_host") {
    Do("cp " + std::string(HOSTS) + "/" + host + " " + LIBRARY + " symbols");
}

} // namespace

TEST_F(Symbols, EveryWayToDieIsTracedToItsLines) {
    const std::string feed =
        "Jam<" + LineOf("jam") + " Pull<" + LineOf("pull") + " FeedFrom@" + LineOf("feed") + " ";
    std::string deep = feed + "Deep@" + LineOf("bottom") + " ";
    for (int i = 0; i < 40; ++i) {
        deep += "Deep@" + LineOf("deep") + " ";
    }
    const std::map<std::string, std::string> expected{
        {"first", "AtTheFirstInstruction@" + LineOf("first") + " "},
        {"feed", feed},
        {"deep", deep},
        {"throw", "Throw@" + LineOf("throw") + " "},
        {"report", "Report@" + LineOf("report") + " "},
        {"library",
         "LightLamp@" + LineOf("lamp", "library.cpp") + " ScanPage@" + LineOf("scan", "library.cpp") + " "},
    };
    for (const std::string host : {"symbols_host", "symbols_host_fixed"}) {
        fs::remove_all("symbols");
        fs::create_directory("symbols");
        Keep(host);
        for (const auto& [way, calls] : expected) {
            const Result result = Crash(Die(way, host));
            const Json json = result.Parsed();
            EXPECT_EQ(result.code, 0) << result.errors;
            EXPECT_EQ(Calls(json["symbols"]), calls + "main@" + LineOf("main " + way) + " ")
                << host << json["frames"];
            EXPECT_TRUE(result.Finds("symbols-placed")) << result.output;
        }
    }
}

TEST_F(Symbols, AStrippedProgramIsReadByWhatWasKept) {
    const std::string all = "LightLamp@" + LineOf("lamp", "library.cpp") + " ScanPage@" +
                            LineOf("scan", "library.cpp") + " main@" + LineOf("main library") + " ";
    // The library exports a name, by which it is found. The program exports none.
    const std::string file = Die("library", "symbols_host", "--strip-all");
    Keep();
    Result result = Crash(file);
    EXPECT_EQ(Calls(result.Parsed()["symbols"]), all.substr(0, all.find("main")));
    EXPECT_TRUE(result.Finds("symbols-nameless")) << result.output;
    EXPECT_EQ(result.code, 0);

    // A manifest has its place, if it is the process's.
    const std::string id = OutputOf("readelf -n " HOSTS "/symbols_host | sed -n 's/.*Build ID: //p'");
    const std::string process = file.substr(10, file.find('-') - 10);
    const auto manifest = [&](const std::string& build, const std::string& number) {
        std::string first;
        for (const std::string& line : Lines(ReadFile("run/modules.txt"))) {
            if (first.empty() && line.ends_with("/symbols_host")) {
                first = line.substr(0, line.find('-'));
            }
        }
        WriteFile("manifest.json",
                  R"({"manifest":1,"tool":{"name":"nima-ctl"},"processes":[{"process":)" + number +
                      R"(,"name":"host","modules":[{"path":"/bin/symbols_host","address":"0x)" + first +
                      R"(","build_id":")" + build + R"("}]}]})");
    };
    manifest(id.substr(0, id.find('\n')), process);
    EXPECT_EQ(Calls(Crash(file).Parsed()["symbols"]), all);
    // In an archive as well, beside a trace that is compressed itself.
    Do("mkdir unit && gzip -c " + file + " >unit/" + file + ".gz && cp manifest.json unit");
    Do("tar -czf unit.tar.gz unit");
    EXPECT_EQ(Calls(Crash("unit.tar.gz").Parsed()["symbols"]), all);
    EXPECT_EQ(Post({"report", "unit.tar.gz", "-o", "report.html", "--symbols", "symbols"}).code, 0);
    EXPECT_NE(PageData()["crashes"][0]["stacks"][0]["resolved"].dump().find(LineOf("main library")),
              std::string::npos);
    manifest(id.substr(0, id.find('\n')), "1");
    EXPECT_EQ(Calls(Crash(file).Parsed()["symbols"]), all.substr(0, all.find("main")));
    // It says that this is another build.
    manifest("0123456789abcdef", process);
    result = Crash(file);
    EXPECT_EQ(Calls(result.Parsed()["symbols"]), all.substr(0, all.find("main")));
    EXPECT_TRUE(result.Finds("symbols-other-build")) << result.output;
}

TEST_F(Symbols, DebugFilesOfEveryKindAreFound) {
    const std::string file = Die("library", "symbols_host", "--strip-debug");
    const std::string all = "LightLamp@" + LineOf("lamp", "library.cpp") + " ScanPage@" +
                            LineOf("scan", "library.cpp") + " main@" + LineOf("main library") + " ";
    EXPECT_EQ(Calls(Crash(file, "run").Parsed()["symbols"]), "") << "there are names, but no lines";
    // By their build id, in a tree of such names.
    fs::create_directories("symbols/.build-id/ab");
    Do(OBJCOPY " --only-keep-debug " HOSTS "/symbols_host symbols/.build-id/ab/1.debug");
    Do(OBJCOPY " --only-keep-debug --compress-debug-sections " LIBRARY " symbols/.build-id/ab/2.debug");
    EXPECT_EQ(Calls(Crash(file).Parsed()["symbols"]), all);
    const Json once = Crash(file, ".").Parsed()["symbols"];
    EXPECT_EQ(Calls(once), all) << "the programs without lines are the same builds";
    EXPECT_TRUE(once["modules"][0]["lines"].get<std::string>().ends_with(".debug"));
    // Without a build id by the link, whose sum keeps another file of the name away.
    const std::string remove = OBJCOPY " --remove-section .note.gnu.build-id ";
    fs::remove_all("symbols");
    fs::create_directories("symbols/debug");
    Do(remove + "--only-keep-debug " + LIBRARY + " symbols/debug/link.debug");
    Do(remove + "--strip-debug --add-gnu-debuglink=symbols/debug/link.debug " + LIBRARY +
       " symbols/library.so");
    const Json linked = Crash(file).Parsed()["symbols"];
    EXPECT_EQ(Calls(linked), all.substr(0, all.find("main")));
    EXPECT_EQ(linked["modules"].size(), 1U) << linked;
    Do("printf x >>symbols/debug/link.debug");
    const Json both = Crash(file).Parsed()["symbols"]["frames"];
    EXPECT_TRUE(std::any_of(both.begin(), both.end(), [](const Json& frame) { return frame.size() == 2; }))
        << "two candidates, one of them with lines: " << both;
}

TEST_F(Symbols, AnotherBuildGivesNoWrongLines) {
    const std::string file = Die("feed", "symbols_host");
    Keep("symbols_host_other");
    Result result = Crash(file);
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(Calls(result.Parsed()["symbols"]), "") << result.output;
    EXPECT_TRUE(result.Finds("symbols-no-base")) << result.output;
    // The device's program came with the evidence: then the right folder is chosen, and the wrong one is
    // refused.
    Do("cp " HOSTS "/symbols_host_other symbols/symbols_host && rm symbols/symbols_host_other");
    Do(OBJCOPY " --strip-all " HOSTS "/symbols_host symbols_host");
    result = Crash(file);
    EXPECT_TRUE(result.Finds("symbols-other-build")) << result.output;
    Do("tar -cf unit.tar " + file + " symbols_host");
    EXPECT_TRUE(Crash("unit.tar").Finds("symbols-other-build"));
    fs::create_directory("right");
    Do("cp " HOSTS "/symbols_host right");
    result = Post({"crash", file, "--symbols", "symbols", "--symbols", "right", "--json"});
    EXPECT_NE(Calls(result.Parsed()["symbols"]).find(LineOf("main feed")), std::string::npos)
        << result.output;
    EXPECT_EQ(result.Parsed()["symbols"]["modules"][0]["build_confirmed"], true);
    // A frame that disagrees is left as it is, and the base that the others agree with is doubted.
    const std::string deep = Die("deep");
    std::string text = ReadFile(deep);
    text.replace(text.find("(main+0x"), 8, "(main+0x1");
    WriteFile("altered.txt", text);
    fs::remove("symbols_host");
    result = Crash("altered.txt", "right");
    EXPECT_EQ(Calls(result.Parsed()["symbols"]).find("main@"), std::string::npos);
    EXPECT_NE(Calls(result.Parsed()["symbols"]).find("Deep@" + LineOf("deep")), std::string::npos);
    EXPECT_TRUE(result.Finds("symbols-doubtful")) << result.output;
    // One that few agree with is none, and so is one at which no file can be.
    for (std::size_t at = 0; (at = text.find("Deep(int)+0x", at)) != std::string::npos; at += 12) {
        text.insert(at + 12, "1");
    }
    WriteFile("few.txt", text);
    WriteFile("odd.txt", text.substr(0, text.find('\n') + 1) + "0x55a45c2f3e34: (main+0x354)\n");
    for (const char* const altered : {"few.txt", "odd.txt"}) {
        result = Crash(altered, "right");
        EXPECT_EQ(Calls(result.Parsed()["symbols"]), "") << result.output;
        EXPECT_TRUE(result.Finds("symbols-no-base")) << result.output;
    }
}

TEST_F(Symbols, FoldersComeFromTheEnvironmentTooAndThePageShowsThem) {
    const std::string name = Die("first");
    // Other folders here would be other devices.
    const std::string file = "unit/" + name;
    fs::create_directory("unit");
    fs::rename(name, file);
    Keep();
    setenv("NIMA_SYMBOLS", "/nowhere:symbols", 1); // NOLINT
    const Result text = Post({"crash", file});
    EXPECT_EQ(Post({"report", "unit", "-o", "report.html"}).code, 0);
    unsetenv("NIMA_SYMBOLS"); // NOLINT
    EXPECT_NE(text.errors.find("/nowhere: no folder"), std::string::npos) << text.errors;
    EXPECT_NE(text.output.find("AtTheFirstInstruction() at "), std::string::npos) << text.output;
    EXPECT_NE(text.output.find(LineOf("first")), std::string::npos);
    const Json stack = PageData()["crashes"][0]["stacks"][0];
    EXPECT_EQ(stack["frames"].size(), stack["resolved"].size());
    EXPECT_NE(stack["resolved"].dump().find(LineOf("first")), std::string::npos) << stack;
    EXPECT_FALSE(stack["statement"].empty());
    EXPECT_TRUE(Post({"crash", file, "--json"}).Parsed()["symbols"].is_null());
}

TEST_F(Symbols, ArmFilesAreReadOnAnyMachine) {
    if (std::string(ARM_COMPILER).empty()) {
        GTEST_SKIP() << "no cross compiler";
    }
    Do(ARM_COMPILER " -g -O1 -shared -fPIC -nostdlib -march=armv7-a+fp -o symbols/arm.so " SOURCES
                    "/arm.cpp");
    const std::string names = OutputOf("arm-linux-gnueabihf-nm symbols/arm.so");
    const auto valueOf = [&](const std::string& name) {
        const std::size_t end = names.find(name + "\n");
        return std::stoul(names.substr(names.rfind('\n', end) + 1), nullptr, 16);
    };
    // As the handler writes them: values of Thumb code are odd, addresses of returns to it as well.
    constexpr std::uint64_t kBase = 0x3F7A'0000;
    std::ostringstream trace;
    const auto line = [&](std::uint64_t address, const std::string& rest) {
        trace << "0x" << std::hex << kBase + address << ":" << rest << "\n";
    };
    const std::uint64_t thumb = valueOf("InThumb") + 1; // nm shows the address
    const std::uint64_t hidden = valueOf("_ZN12_GLOBAL__N_16HiddenEi") + 1;
    line(0x100000, " (signalHandler(int)+0xd3)");
    line(0x200001, " (__default_sa_restorer+0xf)");
    line(thumb - 1, " (InThumb+0x0)"); // the first instruction
    line(valueOf("InArm") + 4, " (InArm+0x4)");
    line(hidden + 4, " -- error: unable to obtain symbol name for this frame");
    for (std::uint64_t offset = 3; offset < 16; offset += 2) {
        line(thumb + offset + 1, " (InThumb+0x" + std::string(1, "0123456789abcdef"[offset]) + ")");
    }
    WriteFile("arm.txt", trace.str());
    const Result result = Crash("arm.txt");
    const std::string calls = Calls(result.Parsed()["symbols"]);
    EXPECT_TRUE(calls.starts_with("InThumb@" + LineOf("thumb begins", "arm.cpp") + " InArm@" +
                                  LineOf("arm", "arm.cpp") + " Hidden@" + LineOf("hidden", "arm.cpp")))
        << calls << trace.str();
    EXPECT_NE(calls.find("Add<" + LineOf("add", "arm.cpp") + " InThumb@" + LineOf("thumb", "arm.cpp")),
              std::string::npos)
        << calls << trace.str();
    EXPECT_EQ(result.Parsed()["symbols"]["modules"][0]["base"], "0x3f7a0000");
}

TEST_F(Symbols, DamagedFilesCostTheirSymbolsAndNothingElse) {
    const std::string file = Die("feed");
    const std::size_t frames = Crash(file).Parsed()["frames"].size();
    const std::string whole = ReadFile(HOSTS "/symbols_host");
    std::size_t told = 0;
    for (int round = 0; round < 40; ++round) {
        std::string bytes = whole;
        if (round < 15) {
            bytes.resize(bytes.size() * static_cast<std::size_t>(round) / 15);
        } else {
            std::uint64_t state = static_cast<std::uint64_t>(round) * 0x9E3779B97F4A7C15;
            for (int i = 0; i < 2000; ++i) {
                state = state * 6364136223846793005 + 1442695040888963407;
                bytes[(state >> 20U) % bytes.size()] = static_cast<char>(state >> 56U);
            }
        }
        WriteFile("symbols/symbols_host", bytes);
        const Result result = Crash(file);
        ASSERT_EQ(result.Parsed()["frames"].size(), frames) << round;
        ASSERT_EQ(result.Parsed()["symbols"]["frames"].size(), frames) << round;
        EXPECT_EQ(result.code, result.Finds("symbols-damaged") ? 1 : 0) << round << result.output;
        told += result.code == 1 ? 1 : 0;
    }
    EXPECT_GT(told, 0U);
    // Other files are of use all the same.
    WriteFile("symbols/cut", whole.substr(0, 100));
    Keep();
    EXPECT_NE(Calls(Crash(file).Parsed()["symbols"]), "");
}
