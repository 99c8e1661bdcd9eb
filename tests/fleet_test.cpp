// Many devices in one database: what `nima-post index` keeps of them and `nima-post fleet` makes of it, on a
// fleet whose causes of death are known, and on bundles that overlap or cannot be read.

#include "tests/simulator/Fleet.h"

#include "tests/support/DeviceFiles.h"
#include "tests/support/Packed.h"
#include "tests/support/Page.h"
#include "tests/support/Post.h"
#include "tests/support/Sandbox.h"
#include "tools/fleet/Database.h"
#include "tools/fleet/Signature.h"

#include <filesystem>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include <unistd.h>

using namespace Nima::Testing;
using NimaPost::Database;
using NimaPost::Statement;

namespace {

namespace fs = std::filesystem;

class FleetTest : public Sandbox {};

void WriteFleet(std::uint64_t devices = 60, std::size_t bytes = 20'000) {
    Simulator::MakeFleet({"fleet", devices, bytes, 1});
}

std::int64_t Count(const std::string& sql, const std::string& path = "fleet.db") {
    const Database database = Database::ForReading(path);
    Statement statement(database, sql.c_str());
    statement.Start();
    return statement.Next() ? statement.Number(0) : 0;
}

/// All rows of all tables.
std::vector<std::string> Dump(const std::string& path) {
    const Database database = Database::ForReading(path);
    std::vector<std::string> rows;
    Statement tables(database, "SELECT name FROM sqlite_master WHERE type = 'table'");
    for (tables.Start(); tables.Next();) {
        const std::string table = *tables.Text(0);
        std::string columns = "'" + table + "'";
        Statement info(database, "SELECT name FROM pragma_table_info(?)");
        for (info.Start(table); info.Next();) {
            columns.append(" || ' ' || quote(").append(*info.Text(0)).append(")");
        }
        std::string query("SELECT ");
        query.append(columns).append(" FROM ").append(table);
        Statement all(database, query.c_str());
        for (all.Start(); all.Next();) {
            rows.push_back(*all.Text(0));
        }
    }
    return rows;
}

/// What the truth and the program both tell of a signature.
Json Told(const Json& signatures) {
    Json told = Json::array();
    for (const Json& each : signatures) {
        told.push_back({each["signature"], each["devices"], each["crashes"]});
    }
    return told;
}

/// A nima-post that runs beside the test.
Child StartPost(const std::vector<std::string>& arguments) {
    return Child([&] { Become("nima-post", NimaPost::RunProgram, arguments, {.output = "/dev/null"}); });
}

std::string CrashLog(int second, const std::string& line = "24") {
    return CrashLogOf(
        {.second = second, .ticks = 400'000'000 + second, .file = "/src/fuser.cpp\r\nLine Numbr: " + line});
}

std::string StackTrace(const std::string& frames) {
    return "0x7fe142d026c8: (signalHandler(int)+0x1d8)\n0x7fe142c5a050: (__restore_rt+0x0)\n" + frames;
}

void WriteDevice(const std::string& folder, const std::map<std::string, std::string>& files) {
    fs::create_directories(folder);
    for (const auto& [name, content] : files) {
        WriteFile(fs::path(folder) / name, content);
    }
}

/// A compressed archive of files.
void WriteArchive(const std::string& path, const std::map<std::string, std::string>& files) {
    Packed packed(path, ARCHIVE_FORMAT_TAR_PAX_RESTRICTED, ARCHIVE_FILTER_GZIP);
    for (const auto& [name, content] : files) {
        packed.Add(name, content);
    }
}

} // namespace

TEST_F(FleetTest, RanksCausesAsTheyStruck) {
    WriteFleet();
    const Json truth = Json::parse(ReadFile("fleet/truth.json"));
    // The database is in the middle of what is read, as are notes of somebody and an earlier page.
    WriteFile("fleet/notes.txt", "call the customer\n");
    const Result first = Post({"index", "fleet", "--db", "fleet/fleet.db", "--json"});
    ASSERT_EQ(first.code, 0) << first.errors;
    EXPECT_EQ(first.errors, "");
    const std::vector<std::string> fleet{"fleet", "fleet/fleet.db", "--version-from", "firmware ([0-9.]+)"};
    std::vector<std::string> call = fleet;
    call.insert(call.end(), {"--html", "fleet/page.html", "--json"});
    const Result ranked = Post(call);
    ASSERT_EQ(ranked.code, 0) << ranked.errors;
    const Json result = ranked.Parsed();
    EXPECT_EQ(Told(result["signatures"]), Told(truth["signatures"]));
    EXPECT_EQ(result["devices"], 60);
    EXPECT_EQ(first.Parsed()["new_cases"], result["cases"]);
    for (const Json& each : result["signatures"]) {
        EXPECT_TRUE(fs::is_directory(each["example"].get<std::string>())) << each;
        EXPECT_LE(each["first"], each["last"]);
        std::int64_t crashes = 0;
        for (const Json& share : each["firmware"]) {
            crashes += share["crashes"].get<std::int64_t>();
        }
        EXPECT_EQ(crashes, each["crashes"]);
    }

    // Once more, with more threads: there is nothing new.
    const auto before = Dump("fleet/fleet.db");
    const Json again =
        Post({"index", "fleet", "--db", "fleet/fleet.db", "--threads", "7", "--json"}).Parsed();
    EXPECT_EQ(again["new_cases"], 0);
    EXPECT_EQ(again["cases"], first.Parsed()["cases"]);
    EXPECT_EQ(Dump("fleet/fleet.db"), before);

    const Json page = PageData("fleet/page.html");
    EXPECT_EQ(Told(page["signatures"]), Told(truth["signatures"]));
    // The struck devices have one thing to say that others have not.
    for (const Json& signature : page["signatures"]) {
        if (signature["signature"] == "0x0031ac05 at fuser.cpp:24") {
            ASSERT_EQ(signature["messages"].size(), 1U) << signature["messages"];
            EXPECT_EQ(signature["messages"][0]["text"], "fuser is # degrees too hot");
            EXPECT_EQ(signature["messages"][0]["healthy"], 0);
        }
    }
    // One that was fetched without its log has no date, and its own column.
    std::int64_t undated = 0;
    for (const Json& signature : page["signatures"]) {
        for (const Json& day : signature["days"]) {
            undated += day[0].is_null() ? day[1].get<std::int64_t>() : 0;
        }
    }
    EXPECT_EQ(undated, Count("SELECT count(*) FROM crashes WHERE time IS NULL", "fleet/fleet.db"));
    EXPECT_GT(undated, 0);
}

TEST_F(FleetTest, GoesOnWhereItWasKilled) {
    WriteFleet();
    ASSERT_EQ(Post({"index", "fleet", "--db", "whole.db"}).code, 0);
    const std::int64_t all = Count("SELECT count(*) FROM cases", "whole.db");
    for (std::int64_t wanted = 1; wanted < all; wanted += all / 6) {
        const Child killed = StartPost({"index", "fleet", "--db", "fleet.db"});
        for (bool reached = false; !reached;) {
            try {
                reached = Count("SELECT count(*) FROM cases") >= wanted;
            } catch (const NimaPost::DatabaseError&) {
                // It has not begun yet.
            }
        }
    }
    ASSERT_EQ(Post({"index", "fleet", "--db", "fleet.db"}).code, 0);
    EXPECT_EQ(Dump("fleet.db"), Dump("whole.db"));
}

TEST_F(FleetTest, TwoWritersAndALockAreWaitedFor) {
    WriteFleet(20);
    Child one = StartPost({"index", "fleet", "--db", "fleet.db"});
    Child other = StartPost({"index", "fleet", "--db", "fleet.db"});
    EXPECT_EQ(one.EndBy(0), 0);
    EXPECT_EQ(other.EndBy(0), 0);
    EXPECT_EQ(Count("SELECT count(*) FROM devices"), 20);
    EXPECT_EQ(Count("SELECT count(*) FROM cases"),
              Count("SELECT count(*) FROM (SELECT DISTINCT device_id, content FROM cases)"));
    const Json truth = Json::parse(ReadFile("fleet/truth.json"));
    EXPECT_EQ(Told(Post({"fleet", "fleet.db", "--json"}).Parsed()["signatures"]), Told(truth["signatures"]));

    const Child holder([](const std::function<void()>& underWay) {
        const Database database = Database::ForWriting("fleet.db");
        const NimaPost::Transaction transaction(database);
        underWay();
        usleep(300'000);
    });
    EXPECT_EQ(Post({"index", "fleet", "--db", "fleet.db"}).code, 0);
}

// A bundle counts once in whatever form it comes, and so does a crash in whatever bundle of its device.
TEST_F(FleetTest, TellsTheSameAgain) {
    const std::string stack = StackTrace("0x5612: (Feed(int)+0x11d)\n0x5699: (main+0x2)\n");
    WriteDevice("monday/unit-1", {{"crash.txt", CrashLog(41)}, {"stacktrace7-1.txt", stack}});
    WriteDevice("copy/unit-1", {{"crash.txt", CrashLog(41)}, {"stacktrace7-1.txt", stack}});
    WriteArchive("unit-1.tar.gz", {{"crash.txt", CrashLog(41)}, {"stacktrace7-1.txt", stack}});
    ASSERT_EQ(Post({"index", "monday", "unit-1.tar.gz", "copy", "--db", "fleet.db"}).code, 0);
    EXPECT_EQ(Count("SELECT count(*) FROM devices"), 1);
    EXPECT_EQ(Count("SELECT count(*) FROM cases"), 1);
    EXPECT_EQ(Count("SELECT count(*) FROM crashes"), 2);

    // Later the log has moved on, and there are new ones: another crash log, and another process of the same
    // number that died at another place. A second device has the first one's log, byte for byte.
    const std::string other = StackTrace("0x5612: (Feed(int)+0x11d)\n0x9999: (Other()+0x2)\n");
    WriteArchive("tuesday.tar.gz", {{"bundle/unit-1/crash.txt.1", CrashLog(41)},
                                    {"bundle/unit-1/crash.txt", CrashLog(55)},
                                    {"bundle/unit-1/stacktrace7-1.txt", other},
                                    {"bundle/unit-1/stacktrace8-1.txt", stack},
                                    {"bundle/unit-2/crash.txt", CrashLog(41)}});
    const Result later = Post({"index", "tuesday.tar.gz", "--db", "fleet.db", "--json"});
    EXPECT_EQ(later.Parsed()["new_crashes"], 4) << later.output;
    EXPECT_EQ(Count("SELECT count(*) FROM crashes"), 6);
    EXPECT_EQ(Count("SELECT count(*) FROM case_crashes"), 7);
    const Json signatures = Post({"fleet", "fleet.db", "--json"}).Parsed()["signatures"];
    const Json expected = Json::array(
        {{"0x0031ac05 at fuser.cpp:24", 2, 3}, {"Feed(int) | main", 1, 2}, {"Feed(int) | Other()", 1, 1}});
    EXPECT_EQ(Told(signatures), expected);
    // What the archive's folder is called for --device.
    EXPECT_EQ(signatures[2]["example"], directory() + "/tuesday.tar.gz");
    EXPECT_EQ(signatures[2]["example_device"], "bundle/unit-1");
    EXPECT_EQ(Post({"crash", "tuesday.tar.gz", "--device", "bundle/unit-1"}).code, 0);

    // One bundle has only the log, another only the host's report, and the third shows that they are one.
    const std::string report =
        "ways.cpp, line 54: Message: [too hot]\nways.cpp, line 54: Code: 3255301, "
        "0x0031ac05\n0x5612: (Report()+0x11d)\n";
    WriteDevice("log/unit-3", {{"crash.txt", CrashLog(41)}});
    WriteDevice("report/unit-3", {{"stacktrace7-1.txt", report}});
    WriteDevice("both/unit-3", {{"crash.txt", CrashLog(41)}, {"stacktrace7-1.txt", report}});
    ASSERT_EQ(Post({"index", "report", "log", "--db", "one.db"}).code, 0);
    EXPECT_EQ(Count("SELECT count(*) FROM crashes", "one.db"), 2);
    ASSERT_EQ(Post({"index", "both", "--db", "one.db"}).code, 0);
    EXPECT_EQ(Told(Post({"fleet", "one.db", "--json"}).Parsed()["signatures"]),
              Json::array({{"0x0031ac05 at fuser.cpp:24", 1, 1}}));
    EXPECT_EQ(Count("SELECT count(*) FROM case_crashes", "one.db"), 3);

    // Databases and a page in a device's own folder make it no other case.
    fs::copy("one.db", "both/unit-3/another.db");
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(Post({"index", "both/unit-3", "--db", "both/unit-3/own.db"}).code, 0);
        ASSERT_EQ(Post({"fleet", "both/unit-3/own.db", "--html", "both/unit-3/page.html"}).code, 0);
    }
    fs::remove("both/unit-3/another.db");
    ASSERT_EQ(Post({"index", "both/unit-3", "--db", "both/unit-3/own.db"}).code, 0);
    EXPECT_EQ(Count("SELECT count(*) FROM cases", "both/unit-3/own.db"), 1);
    EXPECT_EQ(Count("SELECT count(*) FROM files WHERE state = 'ok'", "both/unit-3/own.db"), 2);

    // Names that say more than the device's.
    WriteDevice("dated/unit-1-monday", {{"crash.txt", CrashLog(41)}});
    WriteDevice("dated/unit-1-friday", {{"crash.txt.1", CrashLog(41)}, {"crash.txt", CrashLog(42, "25")}});
    ASSERT_EQ(Post({"index", "dated", "--db", "dated.db", "--device-from", "(unit-\\d+)-"}).code, 0);
    EXPECT_EQ(Count("SELECT count(*) FROM devices WHERE name = 'unit-1'", "dated.db"), 1);
    EXPECT_EQ(Count("SELECT count(*) FROM cases", "dated.db"), 2);
    EXPECT_EQ(Count("SELECT count(*) FROM crashes", "dated.db"), 2);
    // An expression that finds nothing, though in many places, leaves the folder's name.
    ASSERT_EQ(Post({"index", "dated", "--db", "named.db", "--device-from", "(x*)"}).code, 0);
    EXPECT_EQ(Count("SELECT count(*) FROM devices WHERE name LIKE 'unit-1-%'", "named.db"), 2);
}

// After an update, a crash before it is of the firmware that ran then, though no process is known.
TEST_F(FleetTest, KnowsTheFirmwareOfTheTime) {
    const std::string updated =
        Calibration(1000, "1024163100.00100") + LogLine(1001, "<INFO> <Main> firmware 4.2.0") +
        Calibration(1050, "1024163150.00100", 2) + LogLine(1051, "<INFO> <Main> firmware 4.3.0", 2);
    WriteDevice("updated/unit-1",
                {{"device.log", updated}, {"crash.txt.1", CrashLog(41)}, {"crash.txt", CrashLog(55, "25")}});
    ASSERT_EQ(Post({"index", "updated", "--db", "updated.db"}).code, 0);
    ASSERT_EQ(Count("SELECT count(*) FROM crashes WHERE process IS NULL", "updated.db"), 2);
    std::map<std::string, std::string> versions;
    const Json causes =
        Post({"fleet", "updated.db", "--version-from", "firmware (.*)", "--json"}).Parsed()["signatures"];
    for (const Json& each : causes) {
        versions[each["signature"]] = each["firmware"][0]["version"];
    }
    EXPECT_EQ(versions, (std::map<std::string, std::string>{{"0x0031ac05 at fuser.cpp:24", "4.2.0"},
                                                            {"0x0031ac05 at fuser.cpp:25", "4.3.0"}}));
}

TEST_F(FleetTest, BadInputCostsItselfAlone) {
    WriteDevice("fleet/good", {{"crash.txt", CrashLog(41)}});
    WriteDevice("fleet/also", {{"crash.txt", CrashLog(42)}});
    WriteArchive("fleet/broken.tar.gz", {{"unit/crash.txt", CrashLog(43)}});
    fs::resize_file("fleet/broken.tar.gz", fs::file_size("fleet/broken.tar.gz") / 2);
    fs::create_directories("fleet/closed");
    fs::create_symlink("nowhere", "fleet/closed/device.log");
    const Result result = Post({"index", "fleet", "missing", "--db", "fleet.db", "--json"});
    EXPECT_EQ(result.code, 1);
    EXPECT_TRUE(result.Finds("cannot-open"));
    EXPECT_TRUE(result.Finds("archive-damaged"));
    EXPECT_EQ(Count("SELECT count(*) FROM devices WHERE name IN ('good', 'also')"), 2);
    EXPECT_EQ(Count("SELECT count(*) FROM findings WHERE case_id IS NULL AND code = 'cannot-open'"), 2);
    // They are told again, and kept once.
    EXPECT_EQ(Post({"index", "fleet", "missing", "--db", "fleet.db"}).code, 1);
    EXPECT_EQ(Count("SELECT count(*) FROM findings WHERE case_id IS NULL AND code = 'cannot-open'"), 2);

    // One in which nothing would be is not made.
    EXPECT_EQ(Post({"index", "missing", "--db", "empty.db"}).code, 2);
    EXPECT_FALSE(fs::exists("empty.db"));

    WriteFile("text.db", std::string(5000, 'x'));
    Database::ForWriting("newer.db").Execute("PRAGMA user_version = 2");
    Database::ForWriting("other.db").Execute("PRAGMA application_id = 7");
    const std::map<std::string, std::string> refused{
        {"text.db", "no database"}, {"newer.db", "version 2"}, {"other.db", "another program"}};
    for (const auto& [path, words] : refused) {
        const std::string before = ReadFile(path);
        for (const Result& call : {Post({"index", "fleet", "--db", path}), Post({"fleet", path})}) {
            EXPECT_EQ(call.code, 2) << path;
            EXPECT_NE(call.errors.find(words), std::string::npos) << call.errors;
            EXPECT_NE(call.errors.find("--db"), std::string::npos) << call.errors;
        }
        EXPECT_EQ(ReadFile(path), before) << path;
    }
    // What SQLite would keep for the moment only.
    EXPECT_EQ(Post({"index", "fleet", "--db", ""}).code, 2);
    EXPECT_EQ(Post({"index", "fleet", "--db", ":memory:"}).code, 1);
    EXPECT_TRUE(Exists(":memory:"));
    EXPECT_NE(Post({"fleet", "fleet"}).errors.find("a folder"), std::string::npos);
    EXPECT_EQ(Post({"fleet", "none.db"}).code, 2);
    EXPECT_FALSE(Exists("none.db"));
    EXPECT_EQ(Post({"index", "fleet", "--db", "fleet.db", "--device-from", "("}).code, 2);
    EXPECT_EQ(Post({"fleet", "fleet.db", "--html", "fleet.db"}).code, 2);
    EXPECT_EQ(Post({"fleet", "fleet.db"}).code, 0);
}

TEST(Signature, PairsThatFallTogetherAndThatDoNot) {
    const std::string handler = "0x7fe142d026c8: (signalHandler(int)+0x1d8)\n0x7fe1: (__restore_rt+0x0)\n";
    const std::string rest =
        "0x5612: (Job::Run()+0x8)\n0x5613: (main+0x8)\n0x7fe1: (__libc_start_main+0x85)\n";
    const std::string longName =
        "Tray::Feed(std::map<std::string, std::vector<unsigned long>, std::less<std::str";
    const auto signature = [&](const std::string& frames) {
        return NimaPost::SignatureOfStack(Lines(handler + frames + rest), "Fatal signal").text;
    };
    struct Pair {
        const char* what;
        std::string first;
        std::string second;
        bool together;
    };
    const std::vector<Pair> pairs{
        {"addresses and offsets", "0x5511: (Feed(int)+0x11d)\n", "0xb6f1: (Feed(int)+0x8)\n", true},
        {"overloads", "0x1: (Feed(int)+0x1)\n", "0x1: (Feed(char)+0x1)\n", false},
        {"template arguments", "0x1: (Queue<int>::Pop(int&)+0x1)\n",
         "0x1: (Queue<std::pair<Job, Job*> >::Pop(std::pair<Job, Job*>&)+0x1)\n", true},
        {"a template's result", "0x1: (int Largest<int>(int)+0x1)\n", "0x1: (long Largest<long>(long)+0x1)\n",
         true},
        {"functions of a template", "0x1: (Queue<int>::Pop()+0x1)\n", "0x1: (Queue<int>::Push()+0x1)\n",
         false},
        {"operators", "0x1: (Page::operator<(Page const&) const+0x1)\n",
         "0x1: (Page::operator<<(Page const&) const+0x1)\n", false},
        {"operators of templates", "0x1: (Stream& Log::operator<< <int>(Log&, int)+0x1)\n",
         "0x1: (Stream& Log::operator<< <char>(Log&, char)+0x1)\n", true},
        {"operators of classes", "0x1: (Stream& Log::operator<< <int>(Log&, int)+0x1)\n",
         "0x1: (Stream& Page::operator<< <int>(Page&, int)+0x1)\n", false},
        {"comparisons in arguments", "0x1: (Fixed<(4>2)>::Round()+0x1)\n",
         "0x1: (Fixed<(8>2)>::Round()+0x1)\n", true},
        {"recursion", "0x1: (Find(int)+0x1)\n", "0x1: (Find(int)+0x9)\n0x1: (Find(int)+0x1)\n", true},
        {"recursion of two", "0x1: (Odd()+0x1)\n0x1: (Even()+0x1)\n",
         "0x1: (Odd()+0x1)\n0x1: (Even()+0x1)\n0x1: (Odd()+0x2)\n0x1: (Even()+0x1)\n", true},
        {"foreign frames", "0x1: (Feed(int)+0x1)\n",
         "0x7f: (memcpy+0x1)\n0x1: (Feed(int)+0x1)\n0x1: (void std::__invoke<Job>(Job&&)+0x3)\n", true},
        {"neighbours of what the C library does not export", "0x1: (Feed(int)+0x1)\n",
         "0x7f: (__nss_database_lookup+0x1b)\n0x7f: (qsort_r+0x1)\n0x1: (Feed(int)+0x1)\n", true},
        {"a cut line with a foreign result", "0x1: (std::vector<Page> Engine::Render<std::char_traits<char\n",
         "0x7f: (memcpy+0x1)\n", false},
        {"a line that is cut in a result",
         "0x1: (std::enable_if<(sizeof (int))>(2)), std::vector<int> >::ty\n", "0x7f: (memcpy+0x1)\n", false},
        {"callers", "0x1: (Feed(int)+0x1)\n0x1: (Print()+0x1)\n", "0x1: (Feed(int)+0x1)\n0x1: (Copy()+0x1)\n",
         false},
        {"a second entry of the handler", "0x1: (Feed(int)+0x1)\n",
         "0x7f: (abort+0xcf)\n0x7f: (signalHandler(int)+0x9)\n0x1: (Feed(int)+0x1)\n", true},
        {"parts of a function", "0x1: (Feed(int) [clone .cold]+0x1)\n", "0x1: (Feed(int)+0x1)\n", true},
        {"cut lines", "0x1: (" + longName + "\n", "0x2: (" + longName + "\n", true},
        {"cut lines that differ late", "0x1: (" + longName + "a\n", "0x1: (" + longName + "b\n", false},
        {"a cut offset", "0x1: (" + longName + "+0x1)\n", "0x1: (" + longName + "+0x\n", true},
        {"own names like foreign ones", "0x1: (memcpyPages()+0x1)\n", "0x1: (poll(Tray&)+0x1)\n", false},
        {"an own name that C has, too", "0x1: (poll(Tray&)+0x1)\n", "0x1: (poll+0x1)\n", false},
    };
    for (const Pair& pair : pairs) {
        const std::string first = signature(pair.first);
        const std::string second = signature(pair.second);
        EXPECT_EQ(first == second, pair.together) << pair.what << ": " << first << " and " << second;
    }
    // Where nothing of the product has a name, the place in its page has to do; it survives the next load.
    const auto nameless = [](const std::string& address) {
        return NimaPost::SignatureOfStack(
                   {"0x7f1: (signalHandler(int)+0x1)",
                    address + ": -- error: unable to obtain symbol name for this frame",
                    "0x7f2: (abort+0x1)"},
                   "Fatal signal")
            .text;
    };
    EXPECT_EQ(nameless("0x56120000f4d"), nameless("0x55510000f4d"));
    EXPECT_NE(nameless("0x56120000f4d"), nameless("0x56120000f4e"));
    // A call of a null pointer ends the trace where the signal came.
    EXPECT_EQ(NimaPost::SignatureOfStack({"0x7f1: (signalHandler(int)+0x1)", "0x7f2: (__sigaction+0x40)"},
                                         "Fatal signal")
                  .text,
              "Fatal signal, without frames");

    EXPECT_EQ(NimaPost::SignatureOfReport("31AC05", "/src/a/fuser.cpp", "24"),
              NimaPost::SignatureOfReport("0x0031ac05", "C:\\build 7\\fuser.cpp", "24"));
    EXPECT_NE(NimaPost::SignatureOfReport("31AC05", "fuser.cpp", "24"),
              NimaPost::SignatureOfReport("31AC05", "fuser.cpp", "25"));
    EXPECT_NE(NimaPost::SignatureOfReport("31AC05", "fuser.cpp", "24"),
              NimaPost::SignatureOfReport("31AC06", "fuser.cpp", "24"));
}
