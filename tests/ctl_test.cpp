/// nima-ctl beside running processes: what each verb prints and leaves, and what the processes make of it.

#include "tests/support/Ctl.h"

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>
#include <utility>

#include <grp.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/stat.h>

namespace Nima::Testing {

namespace {

class CtlTest : public Sandbox {};

/// The words between backticks.
std::set<std::string> Quoted(const std::string& text) {
    std::set<std::string> words;
    for (std::size_t at = text.find('`'); at != std::string::npos; at = text.find('`', at + 1)) {
        const std::size_t end = text.find('`', at + 1);
        words.insert(text.substr(at + 1, end - at - 1));
        at = end;
    }
    return words;
}

/// Unpacks unit.tar.gz into a new folder.
void Unpack(const std::string& folder) {
    std::filesystem::remove_all(folder);
    std::filesystem::create_directory(folder);
    ASSERT_EQ(std::system(("tar -xzf unit.tar.gz -C " + folder).c_str()), 0); // NOLINT
}

std::set<std::string> MembersOf(const Json& object) {
    std::set<std::string> names;
    for (const auto& [name, value] : object.items()) {
        names.insert(name);
    }
    return names;
}

} // namespace

TEST_F(CtlTest, StatusShowsARunningDevice) {
    const Host device(Trace);
    const Json status = Ctl({"status", "--json", "--for", "0.3"}).Parsed();
    const Json& block = status["systrace"];
    EXPECT_EQ(block["state_name"], "tracing");
    EXPECT_EQ(block["tracing"], "on");
    EXPECT_GT(block["rate"]["records_per_second"], 0.0);
    EXPECT_GT(block["entries_in_use"], 0);
    EXPECT_EQ(block["writers"].size(), 1U);
    EXPECT_EQ(block["processes"][0]["process"], device.Process());
    EXPECT_EQ(status["rings"]["process"], device.Process());
    EXPECT_EQ(status["rings"]["lives"], true);
    EXPECT_EQ(status["rings"]["rings_in_use"], 1);
    EXPECT_EQ(Ctl({"dump", "live.bin", "--json"}).Parsed()["overwritten_slots"], 0);

    const Header header;
    header.SetFilterAside();
    WriteFile("names", "component 5 Scanner\nlevel 0 always\n");
    const Result text = Ctl({"status", "--for", "0.01", "--names", "names"});
    EXPECT_EQ(text.code, 0);
    EXPECT_NE(text.output.find("tracing       cleared"), std::string::npos) << text.output;
    EXPECT_NE(text.output.find("saved filter  always: every component"), std::string::npos) << text.output;
}

TEST_F(CtlTest, RefusesWhatIsNoBlockAndLeavesItAlone) {
    const std::vector<std::vector<std::string>> calls{
        {"status", "--for", "1ms"},
        {"level", "5", "2"},
        {"only", "5:2"},
        {"reset"},
        {"clear"},
        {"dump", "new.bin"},
        {"mark", "x"},
        {"repair"},
        {"record", "--for", "1s", "--level", "5:2", "-o", "new"}};
    for (const auto& call : calls) {
        const Result missing = Ctl(call);
        EXPECT_EQ(missing.code, 2) << call[0];
        EXPECT_NE(missing.errors.find("no such segment"), std::string::npos) << missing.errors;
    }
    EXPECT_TRUE(Listing(".").empty());

    { const Host device(Trace); }
    const std::string good = ReadFile(kTrace);
    // All verbs look at the block in the same way.
    const std::vector<std::vector<std::string>> two{calls.front(), {"clear"}};
    const auto refused = [&](const std::string& bytes, const std::string& why) {
        std::filesystem::remove(kTrace);
        WriteFile(kTrace, bytes);
        for (const auto& call : bytes.empty() ? calls : two) {
            const Result result = Ctl(call);
            // The rings are there to be shown.
            const bool partly = call[0] == "status";
            EXPECT_EQ(result.code, partly ? 1 : 2) << call[0] << why;
            EXPECT_NE(result.errors.find(why), std::string::npos) << call[0] << result.errors;
            EXPECT_EQ(result.output.find("in use        1 of 31 rings") != std::string::npos, partly);
            EXPECT_EQ(result.output.find("tracing"), std::string::npos) << result.output;
        }
        EXPECT_TRUE(ReadFile(kTrace) == bytes) << why;
    };
    refused("", "is cut: 0 bytes");
    refused(good.substr(0, 1 << 20), "is cut");
    const auto with = [&](std::size_t offset, char byte) {
        std::string bytes = good;
        bytes[offset] = byte;
        return bytes;
    };
    const auto withIndices = [&](std::uint32_t index, std::int32_t wraps) {
        std::string bytes = good;
        std::memcpy(&bytes[offsetof(SysTraceHeader, writeIndex)], &index, sizeof(index));
        std::memcpy(&bytes[offsetof(SysTraceHeader, wrapCount)], &wraps, sizeof(wraps));
        return bytes;
    };
    refused(with(0, 'x'), "\"strc\"");
    refused(with(16, 3), "version 3");
    refused(with(20, 1), "entry count 1048577");
    refused(with(172, 0), "index mask");
    refused(with(28, 0), "not formatted");
    refused(withIndices(100, -2), "wrap count -2 and write index 100 do not fit together");
    refused(withIndices(0xFFFFFFFE, -1), "do not fit together");
    refused(withIndices(0xFFFFFFFE, 1), "do not fit together");
    refused(withIndices(2 << 20, 0), "do not fit together");
    EXPECT_EQ(Listing("."), (std::vector<std::string>{kTrace, kRings}));

    // A writer that was killed before it counted leaves the count one behind, which is no damage.
    for (const auto& [index, wraps] : {std::pair(9U, -1), {(1U << 20) + 9, 0}}) {
        WriteFile(kTrace, withIndices(index, wraps));
        const Json dump = Ctl({"dump", "behind.bin", "--json"}).Parsed();
        EXPECT_EQ(dump["entries"], wraps == 0 ? 1 << 20 : 10);
        const Json read = Post({"systrace", "behind.bin", "--json"}).Parsed();
        EXPECT_EQ(read["counts"]["entries_in_use"], dump["entries"]);
    }
    const std::uint32_t wrongSize = 4097;
    std::string rings = ReadFile(kRings);
    std::memcpy(&rings[offsetof(RingDirectory, segmentSize)], &wrongSize, sizeof(wrongSize));
    WriteFile(kRings, rings);
    EXPECT_NE(Ctl({"rings"}).errors.find("says 4097 bytes instead of 503808"), std::string::npos);
    EXPECT_EQ(Ctl({"status"}).code, 1);
}

TEST_F(CtlTest, SaysWhoMayUseTheSegment) {
    { const Host device(Trace); }
    ASSERT_EQ(::chmod(".", 0755), 0);
    const std::string before = ReadFile(kTrace);
    // A recording that was killed; only who may write can close its levels.
    {
        Running recording({"record", "--for", "1h", "--level", "6:2", "-o", "out"});
        const Header header;
        Await([&] { return header->liveFilter[WordOf(2)] != 0; });
    }
    const std::string opened = ReadFile(kTrace);
    const bool root = ::geteuid() == 0;
    const std::string owner = "belongs to user " + std::string(root ? "root (0)" : "");
    const auto refuses = [&](mode_t mode, const std::vector<std::string>& call, const std::string& why,
                             int code = 2) {
        ASSERT_EQ(::chmod(kTrace, mode), 0);
        const Meanwhile other([&] {
            if (root) {
                ASSERT_EQ(::setgroups(0, nullptr), 0);
                ASSERT_EQ(::setresgid(65534, 65534, 65534), 0);
                ASSERT_EQ(::setresuid(65534, 65534, 65534), 0);
            }
            const Result result = Ctl(call);
            EXPECT_EQ(result.code, code);
            EXPECT_NE(result.errors.find(why), std::string::npos) << result.errors;
            EXPECT_NE(result.errors.find(owner), std::string::npos) << result.errors;
        });
    };
    refuses(0444, {"level", "5", "2"}, "may not write the segment");
    refuses(0444, {"mark", "x"}, "who may not write it either");
    refuses(0, {"status"}, "may not read the segment", 1); // but the rings
    refuses(0444, {"clear"}, "stays open: ");
    EXPECT_TRUE(ReadFile(kTrace) == opened);
    ASSERT_EQ(::chmod(kTrace, 0644), 0);
    EXPECT_NE(Ctl({"status", "--for", "0.01"}).errors.find("Closed"), std::string::npos);
    EXPECT_TRUE(ReadFile(kTrace) == before);
}

TEST_F(CtlTest, LevelsCountForTheNextRecords) {
    WriteFile("names", "component 6 Scanner\nlevel 2 details\n");
    Host device(Trace);
    const Header header;
    EXPECT_FALSE(HasRecordOf(6));
    const Result opened = Ctl({"level", "scanner", "details", "3", "--names", "names"});
    EXPECT_EQ(opened.code, 0) << opened.errors;
    EXPECT_NE(opened.output.find("details: Scanner; level 3: Scanner"), std::string::npos) << opened.output;
    EXPECT_LT(opened.output.find("details: none; level 3: none"), opened.output.find("after"));
    AwaitRecordOf(6);

    EXPECT_EQ(Ctl({"level", "6", "2", "--off"}).code, 0);
    EXPECT_EQ(header->liveFilter[WordOf(2)], 0U);
    EXPECT_EQ(header->liveFilter[WordOf(3)], Bit(6));
    // What was claimed before the change is stored by now.
    EXPECT_EQ(Ctl({"clear"}).code, 0);
    AwaitRecordOf(5);
    EXPECT_FALSE(HasRecordOf(6));

    EXPECT_EQ(Ctl({"only", "6:2", "7:0"}).code, 0);
    EXPECT_EQ(Ctl({"clear"}).code, 0);
    AwaitRecordOf(6);
    EXPECT_FALSE(HasRecordOf(5));
    const Json reset = Ctl({"reset", "--json"}).Parsed();
    EXPECT_EQ(reset["before"]["live"]["words"][WordOf(2)], Bit(6));
    for (int i = 0; i < SYSTRACE_FILTER_WORDS; ++i) {
        EXPECT_EQ(reset["after"]["live"]["words"][i], i < 8 ? 0xFFFFFFFF : 0U);
        EXPECT_EQ(header->liveFilter[i], i < 8 ? 0xFFFFFFFF : 0U);
        EXPECT_EQ(header->savedFilter[i], 0U);
    }

    device.EndBy(SIGKILL);
    EXPECT_EQ(Ctl({"clear"}).code, 0);
    EXPECT_EQ(header->writeIndex, 0xFFFFFFFF);
    EXPECT_EQ(header->wrapCount, -1);
}

TEST_F(CtlTest, AChangeThatDumpsUndoIsRepeated) {
    { const Host device(Trace); }
    const Header header;
    const auto until = [](const volatile std::uint32_t& word) { Await([&] { return word != 0; }); };
    header.SetFilterAside();
    {
        // A dump that had read the word before the change, twice.
        const Meanwhile dump([&] {
            volatile std::uint32_t& saved = header->savedFilter[WordOf(2)];
            until(header->liveFilter[WordOf(2)]);
            saved = 0;
            until(saved);
            saved = 0;
            header.BringFilterBack();
        });
        const Json result = Ctl({"level", "5", "2", "--json"}).Parsed();
        EXPECT_GE(result["repeats"], 1);
        EXPECT_EQ(result["held"], false);
    }
    EXPECT_EQ(header->liveFilter[WordOf(2)], Bit(5));
    EXPECT_EQ(header->liveFilter[0], 0xFFFFFFFF);
    header.SetFilterAside();
    {
        // A second dump at the same time: together they lose the filter for good.
        const Meanwhile dumps([&] {
            until(header->liveFilter[WordOf(3)]);
            header.SetFilterAside();
            header.BringFilterBack();
            header.BringFilterBack();
        });
        EXPECT_EQ(Ctl({"level", "6", "3"}).code, 0);
    }
    EXPECT_EQ(header->liveFilter[WordOf(3)], Bit(6));
}

TEST_F(CtlTest, SeveralTakeTurnsBesideAHostThatDumpsAllTheTime) {
    Host device([] {
        Trace();
        DumpSysTrace(L"dump.bin", 0);
    });
    {
        const Meanwhile other([] {
            for (const char* component : {"1", "2", "3"}) {
                EXPECT_EQ(Ctl({"level", component, "2"}).code, 0);
            }
        });
        for (const char* component : {"4", "5", "6"}) {
            EXPECT_EQ(Ctl({"level", component, "2"}).code, 0);
        }
    }
    const Json status = Ctl({"status", "--json", "--for", "0.01"}).Parsed()["systrace"];
    const auto filter = [&](int word) {
        return status["filter"]["words"][word].get<std::uint32_t>() |
               status["saved_filter"]["words"][word].get<std::uint32_t>();
    };
    EXPECT_EQ(filter(WordOf(2)), Bit(1) | Bit(2) | Bit(3) | Bit(4) | Bit(5) | Bit(6));
    EXPECT_EQ(filter(0), 0xFFFFFFFF);
}

TEST_F(CtlTest, DumpsWhileWritersOverwriteTheBlock) {
    const Host device([] {
        static unsigned long number = 0;
        SysTraceConfigure();
        for (int i = 0; i < 1000; ++i, ++number) {
            RTTrace_2(SYSTRACE_ID(5, 0, 77), number, ~number);
        }
    });
    const Header header;
    Await([&] { return header->wrapCount >= 1; });
    const Json result = Ctl({"dump", "live.bin", "--json"}).Parsed();
    EXPECT_EQ(result["entries"], 1 << 20);
    // A dump of the library takes the filter away meanwhile.
    EXPECT_EQ(header->liveFilter[0], 0xFFFFFFFF);
    const std::string dump = ReadFile("live.bin");
    ASSERT_EQ(dump.size(), 512U + (8U << 20));
    const auto word = [&](std::size_t offset) {
        std::uint32_t value = 0;
        std::memcpy(&value, dump.data() + offset, sizeof(value));
        return value;
    };
    // One thread has written, so every record is in one piece, and its number follows from its place.
    constexpr std::uint32_t kCount = 1 << 20;
    constexpr std::uint32_t kHead = SYSTRACE_ID(5, 0, 77);
    const auto entry = [&](std::uint32_t i) { return 512 + (word(256 + 8) + 1 + i) % kCount * 8; };
    std::uint32_t blank = 0;
    std::uint32_t first = 0; ///< the place of a head
    while (first + 1 < kCount && (word(entry(first)) != kHead || word(entry(first + 1)) == 0)) {
        ++first;
    }
    ASSERT_LT(first + 1, kCount);
    const std::uint32_t number = word(entry(first + 1) + 4) - first / 4 - 1; // of a record in front of it
    for (std::uint32_t i = 0; i < kCount; ++i) {
        const std::uint32_t id = word(entry(i));
        blank += id == 0 ? 1 : 0;
        // The writer may not have stored the newest entry yet.
        if (id == 0 || i + 4 >= kCount) {
            continue;
        }
        const std::uint32_t place = (i - first) % 4;
        const std::uint32_t own = number + (i - place + 4) / 4;
        ASSERT_EQ(id, place == 0 ? kHead : kHead | 0x80000000U) << i;
        if (place == 1 || place == 2) {
            ASSERT_EQ(word(entry(i) + 4), place == 1 ? own : ~own) << i;
        }
    }
    EXPECT_EQ(result["overwritten_slots"], blank);
}

TEST_F(CtlTest, ADumpIsAFileLikeTheLibrarys) {
    { const Host device(Trace); }
    EXPECT_EQ(Ctl({"level", "6", "2"}).code, 0);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(Ctl({"dump", "--backups", "2"}).code, 0);
    }
    EXPECT_EQ(Listing("."),
              (std::vector<std::string>{kTrace, "SysTrace.bin", "SysTrace.bin.1", "SysTrace.bin.2", kRings}));
    const std::string dump = ReadFile("SysTrace.bin");
    const std::string segment = ReadFile(kTrace);
    const Json read = Post({"systrace", "SysTrace.bin", "--json"}).Parsed();
    EXPECT_EQ(read["kind"], "dump");
    EXPECT_TRUE(read["findings"]["damage"].empty());
    EXPECT_EQ(dump.size(), 512U + read["counts"]["entries_in_use"].get<std::size_t>() * 8);
    EXPECT_TRUE(segment.starts_with(dump.substr(256)));
    EXPECT_GT(read["records"].size(), 0U);
    EXPECT_TRUE(Ctl({"dump", "-"}).output == dump);
    EXPECT_TRUE(Ctl({"rings", "-"}).output.starts_with("Current Date/Time"));
    EXPECT_TRUE(Ctl({"collect", "-o", "-"}).output.starts_with("\x1f\x8b"));
    EXPECT_FALSE(Exists("-"));

    // The segments stay where the processes that map them look for them, and only files are rolled.
    const std::string rings = ReadFile(kRings);
    std::filesystem::create_symlink("SysTrace.bin", "link");
    std::filesystem::create_symlink(kRings, "to the rings");
    for (const char* target : {kTrace, kRings, "to the rings"}) {
        EXPECT_EQ(Ctl({"dump", target}).code, 2) << target;
        EXPECT_EQ(Ctl({"dump", target, "--backups", "1"}).code, 2) << target;
        EXPECT_EQ(Ctl({"rings", target}).code, 2) << target;
    }
    EXPECT_EQ(Ctl({"dump", "link", "--backups", "1"}).code, 2);
    EXPECT_FALSE(Exists("link.1"));
    EXPECT_TRUE(ReadFile(kTrace) == segment);
    EXPECT_TRUE(ReadFile(kRings) == rings);
    EXPECT_EQ(Ctl({"dump", "no/such/folder"}).code, 2);
}

TEST_F(CtlTest, ADumpThatFailsLeavesItsBackups) {
    { const Host device(Trace); }
    const Header header;
    header->wrapCount = 1;
    const std::vector<std::string> files{"out/trace", "out/trace.1", "out/trace.2"};
    std::filesystem::create_directory("out");
    // Somebody takes the new file away before it gets its name.
    const Host other([name = std::string()]() mutable {
        for (const auto& file : std::filesystem::directory_iterator("out")) {
            name = file.path().filename();
            if (name.size() == std::string("trace.XXXXXX").size()) {
                ::unlink(file.path().c_str());
            }
        }
    });
    int code = 0;
    while (code == 0) {
        for (const std::string& file : files) {
            WriteFile(file, file);
        }
        code = Ctl({"dump", "out/trace", "--backups", "2"}).code;
        EXPECT_EQ(Listing("out"), (std::vector<std::string>{"trace", "trace.1", "trace.2"}));
    }
    EXPECT_EQ(code, 2);
    for (const std::string& file : files) {
        EXPECT_EQ(ReadFile(file), file);
    }
}

TEST_F(CtlTest, NothingThatIsPrintedGoesIntoTheSegment) {
    { const Host device(Trace); }
    EXPECT_EQ(Ctl({"only", "5:0"}).code, 0);
    const auto codeWithout = [](int stream, const std::vector<const char*>& call) {
        const int status = InChild([&] {
            // A terminal of a service, for example, has no open streams.
            ::close(stream);
            ::_exit(NimaCtl::RunProgram(static_cast<int>(call.size()), call.data()));
        });
        return WEXITSTATUS(status);
    };
    const std::string before = ReadFile(kTrace);
    EXPECT_EQ(codeWithout(STDERR_FILENO, {"nima-ctl", "mark", "x"}), 2);
    EXPECT_TRUE(ReadFile(kTrace) == before);
    EXPECT_EQ(codeWithout(STDOUT_FILENO, {"nima-ctl", "status", "--for", "1ms"}), 2);
    // What was done is done, although nobody can be told.
    EXPECT_EQ(codeWithout(STDOUT_FILENO, {"nima-ctl", "level", "6", "2"}), 1);
    const Header header;
    EXPECT_EQ(header->liveFilter[WordOf(2)], Bit(6));
    header->liveFilter[WordOf(2)] = 0;
    EXPECT_TRUE(ReadFile(kTrace) == before);
}

TEST_F(CtlTest, AMarkIsReadAsText) {
    { const Host device(Trace); }
    EXPECT_EQ(Ctl({"clear"}).code, 0);
    const std::string text = "Papierstau gel\u00f6st \u00fcber Fach 2";
    EXPECT_EQ(Ctl({"mark", text}).code, 0);
    EXPECT_EQ(Ctl({"mark", "again", "--event", "5:99"}).code, 0);
    const Json read = Post({"systrace", kTrace, "--json"}).Parsed();
    ASSERT_EQ(read["records"].size(), 3U);
    const Json& records = read["records"];
    EXPECT_EQ(records[0]["name"], "mark");
    EXPECT_EQ(records[0]["text"].get<std::string>() + records[1]["text"].get<std::string>(), text);
    EXPECT_EQ(records[2]["event"], 99);
    EXPECT_EQ(records[2]["arguments"][0], 0x69616761);
    EXPECT_TRUE(read["findings"]["damage"].empty());

    EXPECT_EQ(Ctl({"only", "5:0"}).code, 0);
    const std::string before = ReadFile(kTrace);
    const Result dropped = Ctl({"mark", "x"});
    EXPECT_EQ(dropped.code, 2);
    EXPECT_NE(dropped.errors.find("Diagnostics"), std::string::npos) << dropped.errors;
    EXPECT_TRUE(ReadFile(kTrace) == before);
}

TEST_F(CtlTest, RepairsWhatAKilledDumpLeft) {
    KilledMidway([](const std::function<void()>& underWay) {
        static const std::function<void()>& tell = underWay;
        SysTraceConfigure();
        DumpSysTraceEx(
            [](const char*, int, int*, void*) {
                tell();
                for (;;) {
                    ::pause();
                }
                return 0;
            },
            nullptr);
    });
    const Header header;
    ASSERT_EQ(header->liveFilter[0], 0U);
    const Result held = Ctl({"level", "5", "2", "--wait", "0"});
    EXPECT_EQ(held.code, 0);
    EXPECT_NE(held.errors.find("in the live filter and in the saved one"), std::string::npos) << held.errors;
    const auto status = [] {
        return Ctl({"status", "--json", "--for", "0.01"}).Parsed()["systrace"]["tracing"];
    };
    EXPECT_EQ(status(), "partly cleared");
    const Result repaired = Ctl({"repair", "--wait", "0.1", "--yes"});
    EXPECT_EQ(repaired.code, 0);
    EXPECT_NE(repaired.output.find("repaired"), std::string::npos);
    for (const int word : {0, 7, WordOf(2)}) {
        const std::uint32_t wanted = word < 8 ? 0xFFFFFFFF : Bit(5);
        EXPECT_EQ(header->liveFilter[word], wanted);
        EXPECT_EQ(header->savedFilter[word], wanted);
    }
    EXPECT_EQ(status(), "on");
    // A process that closes levels now leaves what a dump would.
    for (int i = 0; i < 4; ++i) {
        header->liveFilter[i] = 0;
    }
    const Result closed = Ctl({"status", "--for", "10ms"});
    EXPECT_NE(closed.output.find("partly cleared"), std::string::npos) << closed.output;
    EXPECT_NE(closed.errors.find("or levels were closed after a repair"), std::string::npos) << closed.errors;
    const Json again = Ctl({"repair", "--wait", "0.1", "--yes", "--json"}).Parsed();
    EXPECT_EQ(again["repaired"], true);
    EXPECT_EQ(again["before"]["live"]["words"][0], 0U);
    EXPECT_EQ(again["before"]["saved"]["words"][0], 0xFFFFFFFF);
    EXPECT_EQ(again["after"]["live"]["words"][0], 0xFFFFFFFF);
    // What is left in the saved filter is not taken for a dump's.
    EXPECT_EQ(Ctl({"level", "5", "2", "--off"}).code, 0);
    EXPECT_EQ(status(), "on");
    EXPECT_NE(Ctl({"repair"}).output.find("nothing to repair"), std::string::npos);
}

TEST_F(CtlTest, RepairsNothingWhileADumpMayLive) {
    const Host device(Trace);
    const Header header;
    header.SetFilterAside();
    device.Signal(SIGSTOP);
    const Result doubtful = Ctl({"repair", "--wait", "0.1"});
    EXPECT_EQ(doubtful.code, 2);
    EXPECT_NE(doubtful.errors.find("cannot be known"), std::string::npos) << doubtful.errors;
#ifndef __arm__ // under the emulator nothing is known of other processes
    EXPECT_NE(doubtful.errors.find("is stopped"), std::string::npos) << doubtful.errors;
#endif
    EXPECT_EQ(header->liveFilter[0], 0U);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(Ctl({"repair", "--wait", "0.3", "--yes"}).code, 0);
    EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(300));
    EXPECT_EQ(header->liveFilter[0], 0xFFFFFFFF);
    header.SetFilterAside();
    {
        // Another dump begins while it waits for its turn.
        const int segment = ::open(kTrace, O_RDWR | O_CLOEXEC);
        ASSERT_EQ(::flock(segment, LOCK_EX), 0);
        Running repair({"repair", "--wait", "0", "--yes"});
        struct flock place {};
        do {
            ::usleep(1000);
            place = {};
            place.l_type = F_WRLCK;
            place.l_len = 1;
            ASSERT_EQ(::fcntl(segment, F_OFD_GETLK, &place), 0);
        } while (place.l_type == F_UNLCK);
        header->savedFilter[WordOf(2)] = Bit(5);
        ASSERT_EQ(::flock(segment, LOCK_UN), 0);
        EXPECT_EQ(repair.EndBy(0), 2);
        EXPECT_EQ(header->liveFilter[0], 0U);
        header->savedFilter[WordOf(2)] = 0;
        ::close(segment);
    }
    device.Signal(SIGCONT);
    {
        const Meanwhile dump([&] {
            ::usleep(50000);
            header.BringFilterBack();
        });
        const Result ended = Ctl({"repair", "--wait", "600"});
        EXPECT_NE(ended.output.find("nothing to repair"), std::string::npos) << ended.output << ended.errors;
    }
    EXPECT_EQ(header->savedFilter[0], 0U);
}

TEST_F(CtlTest, RepairsNothingBesideAHostThatDumpsAllTheTime) {
    const Host device([] {
        SysTraceConfigure();
        DumpSysTraceEx(
            [](const char*, int length, int* written, void*) {
                *written = length;
                ::usleep(2000);
                return 1;
            },
            nullptr);
    });
    for (int i = 0; i < 3; ++i) {
        const Result result = Ctl({"repair", "--wait", "1", "--yes"});
        EXPECT_EQ(result.output.find("repaired:"), std::string::npos) << result.output;
    }
}

TEST_F(CtlTest, RingsAreReadFromOutside) {
    EXPECT_EQ(Ctl({"rings"}).code, 2);
    { const Host device(Trace); }
    const std::string segment = ReadFile(kRings);
    EXPECT_EQ(Ctl({"rings", "rings.txt"}).code, 0);
    EXPECT_TRUE(ReadFile(kRings) == segment);
    const Json fromText = Post({"rings", "rings.txt", "--json"}).Parsed();
    const Json fromSegment = Post({"rings", kRings, "--json"}).Parsed();
    EXPECT_EQ(fromText["records"], fromSegment["records"]);
    EXPECT_GE(fromText["records"].size(), 100U);
    EXPECT_TRUE(fromText["findings"]["damage"].empty());
    const auto fromBegin = [](const std::string& dump) { return dump.substr(dump.find("BEGIN RING")); };
    EXPECT_EQ(fromBegin(ReadFile("rings.txt")), fromBegin(Ctl({"rings"}).output));

    std::filesystem::resize_file(kRings, 200000);
    EXPECT_EQ(Ctl({"rings", "rings.txt"}).code, 1);
    std::filesystem::resize_file(kRings, 4095);
    EXPECT_EQ(Ctl({"rings", "rings.txt"}).code, 1);
    std::filesystem::resize_file(kRings, 100);
    EXPECT_EQ(Ctl({"rings", "rings.txt"}).code, 2);
    EXPECT_EQ(Ctl({"rings", kRings}).code, 2);
}

TEST_F(CtlTest, CollectsARunningDeviceAndADeadOne) {
    const std::string longName = std::string(150, 'n') + ".txt";
    std::filesystem::create_directory("device");
    std::filesystem::current_path("device");
    EXPECT_EQ(Ctl({"collect", "-o", "../unit.tar.gz"}).code, 2);
    EXPECT_FALSE(Exists("../unit.tar.gz"));
    WriteFile(longName, "x");
    WriteFile("exact.bin", std::string(1024, 'b'));
    WriteFile("empty", "");
    std::filesystem::create_symlink("/etc/passwd", "link");

    Host device(Trace);
    // What a recording has left open is closed before. A pipe is no note of one.
    {
        const Running killed({"record", "--for", "1h", "--level", "6:2", "-o", "new"});
        Await([] { return Header()->liveFilter[WordOf(2)] != 0; });
    }
    ASSERT_EQ(::mkfifo("nima-ctl.dddddd.record", 0600), 0);
    const std::string self = std::filesystem::read_symlink("/proc/self/exe");
    const Result running = Ctl({"collect", "-o", "unit.tar.gz", "--program", self});
    EXPECT_EQ(running.code, 0) << running.errors;
    EXPECT_EQ(Header()->liveFilter[WordOf(2)], 0U);
    Unpack("../out");
    const Json manifest = Json::parse(ReadFile("../out/manifest.json"));
    EXPECT_EQ(manifest["boot_id"].get<std::string>() + "\n", ReadFile("/proc/sys/kernel/random/boot_id"));
    EXPECT_EQ(manifest["segments"][kTrace]["mapped_by"], Json::array({device.Process()}));
    EXPECT_EQ(manifest["segments"][kRings]["mapped_by"], Json::array({device.Process()}));
    EXPECT_EQ(manifest["processes"].size(), 1U);
    EXPECT_EQ(manifest["left_out"][0]["name"], "link");
    EXPECT_EQ(manifest["left_out"][1]["name"], "nima-ctl.dddddd.record");
    const std::string id = manifest["programs"][0]["build_id"];
    EXPECT_EQ(id.size(), 40U);
#ifndef __arm__ // under the emulator the process is the emulator's
    const Json& modules = manifest["processes"][0]["modules"];
    const auto own = std::find_if(modules.begin(), modules.end(),
                                  [&](const Json& module) { return module["path"] == self; });
    ASSERT_NE(own, modules.end());
    EXPECT_EQ((*own)["build_id"], id);
#endif

    // A damaged block is evidence as well.
    device.EndBy(SIGKILL);
    Header()->version = 3;
    const Result damaged = Ctl({"collect", "--program", self, ".", "-o", "unit.tar.gz"});
    EXPECT_EQ(damaged.code, 0);
    EXPECT_NE(damaged.errors.find("packed as it is"), std::string::npos) << damaged.errors;
    EXPECT_NE(damaged.errors.find("version 3"), std::string::npos) << damaged.errors;
    Unpack("../out");
    EXPECT_TRUE(Json::parse(ReadFile("../out/manifest.json"))["processes"].empty());
    const std::vector<std::string> names{kTrace, kRings, "empty", "exact.bin", "manifest.json", longName};
    EXPECT_EQ(Listing("../out"), names);
    for (const std::string& name : names) {
        EXPECT_TRUE(name == "manifest.json" || ReadFile("../out/" + name) == ReadFile(name)) << name;
    }
    EXPECT_EQ(Ctl({"collect", "-o", kTrace}).code, 2);
    std::filesystem::current_path("..");
}

TEST_F(CtlTest, CollectsWhatRollsAndNothingOfWhatCannotBeWritten) {
    std::filesystem::create_directory("device");
    const auto path = [](int number) {
        return "device/log" + (number == 0 ? std::string() : "." + std::to_string(number));
    };
    constexpr int kLogs = 5;
    for (int i = 0; i < kLogs; ++i) {
        WriteFile(path(i), std::string(3000, static_cast<char>('a' + i)));
    }
    const auto collectedContents = [] {
        Unpack("out");
        std::multiset<char> contents;
        for (const std::string& name : Listing("out")) {
            contents.insert(ReadFile("out/" + name)[0]);
        }
        return contents;
    };
    const std::multiset<char> all{'a', 'b', 'c', 'd', 'e', '{'}; // the last is the manifest's
    {
        // The logs roll all the time: each is there under one name at any time.
        const Host rolling([&] {
            std::filesystem::rename(path(kLogs - 1), "device/log.new");
            for (int i = kLogs - 1; i > 0; --i) {
                std::filesystem::rename(path(i - 1), path(i));
            }
            std::filesystem::rename("device/log.new", path(0));
            ::usleep(500);
        });
        for (int i = 0; i < 20; ++i) {
            const Result result = Ctl({"collect", "device", "-o", "unit.tar.gz"});
            if (result.code == 0) {
                EXPECT_EQ(collectedContents(), all);
            } else {
                EXPECT_NE(result.errors.find("renamed again and again"), std::string::npos) << result.errors;
            }
        }
    }
    EXPECT_EQ(Ctl({"collect", "device", "-o", "unit.tar.gz"}).code, 0);
    EXPECT_EQ(collectedContents(), all);

    // No room: what was there stays, and nothing else is left.
    const std::string before = ReadFile("unit.tar.gz");
    const std::vector<std::string> names = Listing(".");
    std::string noise(1 << 20, '\0');
    std::uint32_t random = 1;
    for (char& byte : noise) {
        random = random * 1664525 + 1013904223;
        byte = static_cast<char>(random >> 24);
    }
    WriteFile("device/noise", noise);
    const Meanwhile full([&] {
        const rlimit limit{1 << 18, 1 << 18};
        std::signal(SIGXFSZ, SIG_IGN);
        EXPECT_EQ(::setrlimit(RLIMIT_FSIZE, &limit), 0);
        const Result result = Ctl({"collect", "device", "-o", "unit.tar.gz"});
        EXPECT_EQ(result.code, 2);
        EXPECT_NE(result.errors.find("File too large"), std::string::npos) << result.errors;
    });
}

TEST_F(CtlTest, AnInterruptLeavesNoHalfFile) {
    { const Host device(Trace); }
    const Header header;
    header->wrapCount = 1;
    std::string rings = ReadFile(kRings);
    std::fill(rings.begin() + RING_DIRECTORY_SIZE, rings.end(), '\1');
    WriteFile(kRings, rings);
    for (const char* verb : {"dump", "rings"}) {
        std::filesystem::create_directory(verb);
        const std::string path = std::string(verb) + "/file";
        for (int i = 0; i < 5; ++i) {
            WriteFile(path, "earlier");
            Running call({verb, path});
            while (Listing(verb).size() == 1 && ReadFile(path) == "earlier") {
            }
            // Unless it comes too late, and the file is whole.
            const bool interrupted = call.EndBy(SIGINT) == 2;
            EXPECT_EQ(Listing(verb), std::vector<std::string>{"file"});
            EXPECT_EQ(ReadFile(path) == "earlier", interrupted) << verb;
        }
    }
}

TEST_F(CtlTest, SaysWhatIsWrongWithACall) {
    { const Host device(Trace); }
    const std::string before = ReadFile(kTrace);
    const std::vector<std::pair<std::vector<std::string>, std::string>> calls{
        {{}, "a verb is needed"},
        {{"stauts"}, "no verb \"stauts\""},
        {{"mark", "-hello"}, "no option \"-hello\" of mark; an argument that begins with \"-\""},
        {{"mark", std::string(1001, 'x')}, "1 to 1000 bytes"},
        {{"level", "128", "0"}, "no component \"128\""},
        {{"level", "5", "4"}, "no level \"4\""},
        {{"level", "5"}, "at least one level"},
        {{"level", "5", ""}, "an argument is empty"},
        {{"only", "5"}, "no COMPONENT:LEVEL"},
        {{"level", "5", "2", "--wait", "nan"}, "no time \"nan\""},
        {{"level", "5", "2", "--wait", "0x10"}, "no time \"0x10\""},
        {{"status", "--for", "0"}, "more than nothing"},
        {{"record", "--level", "6:2", "-o", "out", "--for", "25h"}, "at most a day"},
        {{"dump", "--backups", "1e1"}, "\"1e1\" is no number from 0 to 99"}};
    for (const auto& [call, why] : calls) {
        const Result result = Ctl(call);
        EXPECT_EQ(result.code, 2) << why;
        EXPECT_EQ(result.output, "");
        EXPECT_NE(result.errors.find(why), std::string::npos) << result.errors;
    }
    EXPECT_TRUE(ReadFile(kTrace) == before);
    EXPECT_EQ(Ctl({"mark", "--", "-hello"}).code, 0);
}

TEST_F(CtlTest, TheManifestIsAsItsPageSays) {
    const Host device(Trace);
    EXPECT_EQ(Ctl({"record", "--for", "50ms", "--level", "6:2", "-o", "out"}).code, 0);
    const Json manifest = Json::parse(ReadFile("out/manifest.json"));
    // The first table is the object's own, each other that of the member in its heading.
    std::map<std::string, std::set<std::string>> page;
    std::string heading;
    for (const std::string& line : Lines(ReadFile(NIMA_PAGES "/manifest.md"))) {
        if (line.starts_with("## ")) {
            heading = line.substr(3);
        }
        if (line.starts_with("| `")) {
            page[heading].merge(Quoted(line.substr(0, line.find('|', 1))));
        }
    }
    page["files"].erase("overwritten_slots"); // only where there are any
    EXPECT_EQ(MembersOf(manifest), page[""]);
    EXPECT_EQ(MembersOf(manifest["clocks"]), page["clocks"]);
    EXPECT_EQ(MembersOf(manifest["files"][1]), page["files"]);
    EXPECT_EQ(MembersOf(manifest["recording"]), page["recording"]);
#ifndef __arm__ // under the emulator nothing is known of other processes
    EXPECT_EQ(MembersOf(manifest["processes"][0]["modules"][0]), page["modules"]);
#endif
}

TEST_F(CtlTest, TheJsonIsAsItsPageSays) {
    std::map<std::string, std::set<std::string>> page;
    std::set<std::string> codes;
    for (const std::string& line : Lines(ReadFile(NIMA_PAGES "/nima-ctl-json.md"))) {
        const std::size_t end = line.find('|', 1);
        if (line.starts_with("| `")) {
            codes.merge(Quoted(line.substr(0, end)));
            for (const std::string& verb : Quoted(line.substr(0, end))) {
                page[verb] = Quoted(line.substr(end));
            }
        }
    }
    page["record"].erase("recording"); // whose members are those of the manifest's
    for (const char* member :
         {"begin_counter", "cleared", "end_counter", "interrupted", "opened_levels", "seconds"}) {
        page["record"].insert(member);
    }
    const auto check = [&](std::vector<std::string> call, int code) {
        call.emplace_back("--json");
        const Result result = Ctl(call);
        EXPECT_EQ(result.code, code) << result.errors;
        EXPECT_TRUE(result.output.starts_with("{\"schema\":1,")) << result.output;
        Json object = result.Parsed();
        std::set<std::string> members = page[call[0]];
        if (code == 2) {
            members = {"error"};
        }
        members.insert({"schema", "findings"});
        EXPECT_EQ(MembersOf(object), members) << call[0];
        EXPECT_EQ(object["findings"]["damage"].empty(), code != 1);
        for (const auto& [kind, list] : object["findings"].items()) {
            for (const Json& finding : list) {
                EXPECT_TRUE(codes.contains(finding["code"].get<std::string>())) << finding;
            }
        }
        return object;
    };
    check({"status"}, 2);
    const Host device(Trace);
    const std::vector<std::vector<std::string>> calls{
        {"status", "--for", "1ms"},
        {"level", "5", "2"},
        {"only", "5:2", "127:0"},
        {"mark", "x"},
        {"reset"},
        {"clear"},
        {"dump"},
        {"rings"},
        {"repair"},
        {"collect", "-o", "unit.tar.gz"},
        {"record", "--for", "10ms", "--level", "6:2", "-o", "out"}};
    for (const auto& call : calls) {
        check(call, 0);
    }
    check({"collect", "-o", "unit.tar.gz", "--program", "none"}, 1);
    std::filesystem::rename(kTrace, "elsewhere");
    EXPECT_TRUE(check({"status"}, 1)["systrace"].is_null());
}

} // namespace Nima::Testing
