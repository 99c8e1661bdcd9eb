// nima-post from outside: the library leaves files, the program reads them, and output and exit code are
// checked.

#include "tests/support/Post.h"

#include "tests/support/DeviceFiles.h"
#include "tests/support/Sandbox.h"
#include "tools/axis/Owners.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <nlohmann/json.hpp>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Diagnostics/CrashApi.h>
#include <Diagnostics/EventLog.h>
#include <Diagnostics/EventLogApi.h>
#include <Diagnostics/EventLogPayload.h>
#include <Diagnostics/Formats.h>
#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>
#include <Diagnostics/RollingLogFile.h>
#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceServices.h>

using namespace Nima::Common::System::OS::Diagnostics;
using namespace Nima::Testing;

namespace {

class PostMortem : public Sandbox {};

/// Whether `show` lists an event of the working directory with this text.
bool IsShown(const std::string& text) {
    const Json events = Post({"show", ".", "--json", "--names", "names"}).Parsed()["events"];
    return std::any_of(events.begin(), events.end(),
                       [&](const Json& event) { return event["text"] == text; });
}

/// Each on a thread of its own, until all have ended.
void InThreads(std::uint32_t count, const std::function<void(std::uint32_t)>& action) {
    std::vector<std::thread> threads;
    for (std::uint32_t number = 0; number < count; ++number) {
        threads.emplace_back(action, number);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

void Dump() {
    std::array<wchar_t, 16> path{L"trace.bin"};
    DumpSysTrace(path.data(), 0);
}

/// A block as a writer would leave it, entry by entry.
class Block {
  public:
    Block& Add(std::uint32_t id, std::uint32_t value) {
        entries_.emplace_back(SysTraceEntry{id, value});
        return *this;
    }
    /// A slot that its writer claimed and never filled.
    Block& Skip() {
        entries_.emplace_back();
        return *this;
    }
    Block& Record(std::uint32_t id, std::uint32_t time, const std::vector<std::uint32_t>& rest) {
        Add(id, time);
        for (const std::uint32_t value : rest) {
            Add(id | SYSTRACE_CONTINUATION, value);
        }
        return *this;
    }
    void Write(const std::string& path, std::uint32_t entryCount = 64) const {
        SysTraceHeader header{};
        std::memcpy(header.magic, "strc", 4);
        header.headerSize = SYSTRACE_HEADER_SIZE;
        header.version = SYSTRACE_VERSION;
        header.entryCount = entryCount;
        header.indexMask = entryCount - 1;
        header.bufferSize = entryCount * 8 + SYSTRACE_HEADER_SIZE;
        header.writeIndex = static_cast<std::uint32_t>(entries_.size()) - 1;
        header.wrapCount = static_cast<std::int32_t>(header.writeIndex / entryCount);
        header.flags = 3;
        header.state = 1;
        std::vector<SysTraceEntry> slots(entryCount);
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            slots[i % entryCount] = entries_[i].value_or(slots[i % entryCount]);
        }
        std::string bytes(reinterpret_cast<const char*>(&header), sizeof(header));
        bytes.append(reinterpret_cast<const char*>(slots.data()), slots.size() * sizeof(SysTraceEntry));
        WriteFile(path, bytes);
    }

  private:
    std::vector<std::optional<SysTraceEntry>> entries_;
};

/// Ten records, whose argument is their number.
Block TenRecords() {
    Block block;
    for (std::uint32_t i = 0; i < 10; ++i) {
        block.Record(0x00800001, 1000 + i, {i, 0x111});
    }
    return block;
}

std::vector<std::uint32_t> Arguments(const Json& record) {
    return record["arguments"];
}

/// As the performance counter shows a time.
std::int64_t CounterAt(std::int64_t time) {
    return time / 1'000'000'000 + time % 1'000'000'000;
}

/// A record in a text dump of rings.
std::string RingLine(std::int64_t time, unsigned thread, unsigned number) {
    std::array<char, 128> line{};
    std::snprintf(line.data(), line.size(), "%019lld 0x%08x 0x00000005 : 0x%08x 0x%08x 0x%08x 0x%08x\r\n",
                  static_cast<long long>(CounterAt(time)), thread, number, 2U, 3U, 4U);
    return line.data();
}

constexpr const char* kPanelDump = "BEGIN RING BUFFER DUMP\r\n\r\n######## Ring Buffer Panel ########\r\n";
constexpr const char* kDumpEnd = "\r\nEND RING BUFFER DUMP\r\n";

} // namespace

TEST_F(PostMortem, ReadsWhatThreadsWroteIntoTheBinaryTraceInTheSegmentAndInADump) {
    constexpr std::uint32_t kEach = 500;
    InGoodChild([] {
        SysTraceConfigure();
        InThreads(3, [](std::uint32_t writer) {
            for (std::uint32_t i = 0; i < kEach; ++i) {
                RTTrace_2(SYSTRACE_ID(10 + writer, writer % 2, 7), i, writer);
            }
        });
        Dump();
    });
    for (const std::string file : {"trace.bin", "SysTrace Buffer"}) {
        const Result result = Post({"systrace", file, "--json"});
        ASSERT_EQ(result.code, 0) << result.output;
        const Json json = result.Parsed();
        EXPECT_EQ(json["kind"], file == "trace.bin" ? "dump" : "segment");
        EXPECT_EQ(json["header"]["version"], 2);
        // Only slots give the order of one writer's records for certain: a busy machine may keep a writer
        // from the clock for longer than any rule allows.
        std::array<std::map<std::uint32_t, std::vector<std::uint32_t>>, 128> bySlot;
        for (const Json& record : json["records"]) {
            EXPECT_EQ(record["state"], "whole");
            bySlot.at(record["component"])[record["slot"]] = Arguments(record);
        }
        for (std::uint32_t writer = 0; writer < 3; ++writer) {
            std::uint32_t next = 0;
            for (const auto& [slot, arguments] : bySlot.at(10 + writer)) {
                EXPECT_EQ(arguments, (std::vector<std::uint32_t>{next++, writer}));
            }
            EXPECT_EQ(next, kEach);
        }
    }
    EXPECT_NE(Post({"systrace", "trace.bin"}).output.find("saved filter  level 0: every component"),
              std::string::npos);
    const Json last =
        Post({"systrace", "trace.bin", "--json", "--component", "11", "--level", "1", "--last", "3"})
            .Parsed();
    ASSERT_EQ(last["records"].size(), 3U);
    EXPECT_EQ(Arguments(last["records"][2]), (std::vector<std::uint32_t>{kEach - 1, 1}));
    EXPECT_EQ(Post({"systrace", "trace.bin", "--level", "4"}).code, 2);
}

TEST_F(PostMortem, ReadsTheSegmentOfAProcessThatWasKilledWhileItWrote) {
    KilledMidway([](const std::function<void()>& underWay) {
        SysTraceConfigure();
        InThreads(2, [&underWay](std::uint32_t writer) {
            // With more, it would wrap before a busy machine has killed it.
            for (std::uint32_t i = 0; i < 30'000; ++i) {
                RTTrace_2(SYSTRACE_ID(10 + writer, 0, 7), i, ~i);
                if (writer == 0 && i == 5000) {
                    underWay();
                }
            }
            ::pause();
        });
    });
    const Result result = Post({"systrace", "SysTrace Buffer", "--json", "--last", "6000"});
    ASSERT_TRUE(result.code == 0 || result.code == 1) << result.output;
    const Json json = result.Parsed();
    std::array<std::set<std::uint32_t>, 2> written;
    std::size_t whole = 0;
    for (const Json& record : json["records"]) {
        if (record["state"] == "whole") {
            const std::uint32_t i = record["arguments"][0];
            ASSERT_EQ(Arguments(record), (std::vector<std::uint32_t>{i, ~i}));
            ASSERT_TRUE(written.at(record["component"].get<std::uint32_t>() - 10).insert(i).second);
            ++whole;
        }
    }
    for (const std::set<std::uint32_t>& numbers : written) {
        // One after the other, none left out.
        EXPECT_EQ(numbers.empty() ? 0 : *numbers.rbegin() - *numbers.begin() + 1, numbers.size());
    }
    EXPECT_GT(whole, 5000U);
    EXPECT_LE(json["counts"]["torn"], 4); // What was being written, at either end of the block.
}

TEST_F(PostMortem, PutsInterleavedRecordsTogetherAndNeverGuessesAtTornOnes) {
    constexpr std::uint32_t kA = 0x00800001;
    constexpr std::uint32_t kB = 0x00C00002;
    Block block;
    for (std::uint32_t i = 0; i < 4; ++i) {
        block.Record(kA, 1000 + i * 10, {i, 0x111}).Record(kB, 1005 + i * 10, {i, i, 0x222});
    }
    // Two events at the same moment: each finds its own entries.
    block.Add(kA, 2000).Add(kB, 2001).Add(kA | SYSTRACE_CONTINUATION, 41).Add(kB | SYSTRACE_CONTINUATION, 51);
    block.Add(kB | SYSTRACE_CONTINUATION, 52).Add(kA | SYSTRACE_CONTINUATION, 0x111);
    block.Add(kB | SYSTRACE_CONTINUATION, 0x222);
    // The same event twice at the same moment: nothing shows whose values these are.
    block.Add(kA, 3000).Add(kA, 3001).Add(kA | SYSTRACE_CONTINUATION, 61).Add(kA | SYSTRACE_CONTINUATION, 62);
    block.Add(kA | SYSTRACE_CONTINUATION, 0x111).Add(kA | SYSTRACE_CONTINUATION, 0x222);
    // A killed writer, an entry never stored, a continuation without a record.
    block.Add(kB, 4000).Add(kB | SYSTRACE_CONTINUATION, 71).Add(0, 0).Add(0x81000003, 9);
    block.Record(kA, 5000, {80, 0x111});
    block.Write("block");

    const Result result = Post({"systrace", "block", "--json"});
    EXPECT_EQ(result.code, 1);
    const Json json = result.Parsed();
    const Json& records = json["records"];
    ASSERT_EQ(records.size(), 14U);
    EXPECT_EQ(Arguments(records[8]), (std::vector<std::uint32_t>{41}));
    EXPECT_EQ(Arguments(records[9]), (std::vector<std::uint32_t>{51, 52}));
    EXPECT_EQ(records[9]["thread"], "0x00000222");
    EXPECT_EQ(records[10]["state"], "entangled");
    EXPECT_EQ(records[11]["state"], "entangled");
    EXPECT_TRUE(records[11]["thread"].is_null());
    EXPECT_EQ(records[12]["state"], "torn");
    EXPECT_EQ(Arguments(records[12]), (std::vector<std::uint32_t>{71}));
    EXPECT_EQ(records[13]["state"], "whole");
    EXPECT_EQ(json["counts"]["torn"], 1);
    EXPECT_EQ(json["counts"]["entangled"], 2);
    EXPECT_EQ(json["counts"]["orphan_entries"], 1);
    EXPECT_EQ(json["counts"]["never_stored_entries"], 1);
    for (const char* code : {"torn-record", "entangled-record", "orphan-continuation", "never-stored"}) {
        EXPECT_TRUE(result.Finds(code)) << code;
    }

    // A wrapped block begins inside a record; what the wrap cut off is no damage.
    Block wrapped;
    for (std::uint32_t i = 0; i < 30; ++i) {
        wrapped.Record(kB, 1000 + i, {i, i, 0x222});
    }
    wrapped.Write("wrapped", 64);
    const Json afterWrap = Post({"systrace", "wrapped", "--json"}).Parsed();
    EXPECT_EQ(afterWrap["records"].size(), 16U);
    wrapped.Add(kA, 1030).Write("wrapped", 64);
    const Result cut = Post({"systrace", "wrapped", "--json"});
    EXPECT_EQ(cut.Parsed()["counts"]["cut_off_entries"], 3);
    EXPECT_TRUE(cut.Finds("wrapped-start"));
    EXPECT_EQ(cut.Parsed()["records"].front()["arguments"][0], 15);

    // The dictionary knows how many arguments an event has, and what they mean.
    WriteFile("names", "# what it prints\ncomponent 3 Engine\nevent Engine 2 page \"page %u of %u\"\n");
    const Result named = Post({"systrace", "block", "--names", "names", "--component", "engine"});
    EXPECT_NE(named.output.find("Engine  level 0  page: page 51 of 52\n"), std::string::npos) << named.output;
    // A dictionary for another firmware is distinguished from damage, and the times do not suffer.
    Block many;
    for (std::uint32_t i = 0; i < 30; ++i) {
        many.Record(kB, static_cast<std::uint32_t>(CounterAt(i * std::int64_t{300'000'000})), {i, i, 0x222});
    }
    many.Write("many", 256);
    WriteFile("names", "event 3 2 page \"page %u\"\n");
    const Result other = Post({"systrace", "many", "--json", "--names", "names"});
    EXPECT_EQ(other.code, 0) << other.output;
    EXPECT_EQ(other.Parsed()["records"].back()["elapsed_ns"], 29 * 300'000'000LL);
    EXPECT_TRUE(other.Finds("misnamed-event"));
    WriteFile("names", "component 3 Engine\nevent Engine 2 page \"page %s\"\n");
    EXPECT_EQ(Post({"systrace", "block", "--names", "names"}).code, 2);
}

// The processor leaves a free-running writer in the middle of a record while others fill the whole block.
TEST_F(PostMortem, FindsNoDamageInAWrappedTraceOfFreeRunningWriters) {
#ifndef __SANITIZE_THREAD__ // which holds writers up between their entries for longer than readers allow for
    InGoodChild([] {
        SysTraceConfigure();
        unsigned char* memory = nullptr;
        GetRTTraceBuffer(&memory);
        std::atomic<bool> stop{false};
        InThreads(9, [&](std::uint32_t writer) {
            for (std::uint32_t i = 0; writer < 8 && !stop; ++i) {
                RTTrace_2(SYSTRACE_ID(10 + writer, 0, 7), i, writer);
            }
            std::int32_t wraps = 0;
            while (!stop && wraps < 2) {
                std::this_thread::yield();
                std::memcpy(&wraps, memory + offsetof(SysTraceHeader, wrapCount), sizeof(wraps));
            }
            if (!stop) {
                Dump();
                stop = true;
            }
        });
    });
    const Result real = Post({"systrace", "trace.bin", "--json", "--last", "1"});
    EXPECT_EQ(real.code, 0) << real.Parsed()["findings"];
#endif

    constexpr std::uint32_t kOften = 0x00C00002;
    constexpr std::uint32_t kOnce = 0x01000003;
    const auto wrapped = [&](std::uint32_t apart, std::uint32_t thread) {
        Block block;
        std::int64_t time = 1000;
        const auto some = [&](int records) {
            for (int i = 0; i < records; ++i, time += apart) {
                block.Record(kOften, static_cast<std::uint32_t>(CounterAt(time)),
                             {7, i % 2 == 0 ? 0x111U : 0x222U});
            }
        };
        some(150);
        block.Add(kOnce | SYSTRACE_CONTINUATION, 41).Add(kOnce | SYSTRACE_CONTINUATION, thread);
        some(30);
        block.Write("wrapped", 256);
        return Post({"systrace", "wrapped", "--json"});
    };
    const Result held = wrapped(10'000, 0x333);
    EXPECT_EQ(held.code, 0) << held.output;
    EXPECT_EQ(held.Parsed()["counts"]["cut_off_entries"], 4);
    EXPECT_EQ(held.Parsed()["counts"]["torn"], 0);
    // A thread that has written since the wrap had nothing open: these are of an older round.
    const Result old = wrapped(10'000, 0x222);
    EXPECT_EQ(old.code, 0) << old.output;
    EXPECT_EQ(old.Parsed()["counts"]["stale_entries"], 2);
    // Nobody is held up for half a minute.
    const Result late = wrapped(700'000'000, 0x333);
    EXPECT_EQ(late.code, 1);
    EXPECT_EQ(late.Parsed()["counts"]["orphan_entries"], 2);
}

// A killed writer leaves what was in its slot: an entry of the round before.
TEST_F(PostMortem, KeepsARecordWholeThatAnEntryOfAnOlderRoundFollows) {
    constexpr std::uint32_t kEvent = 0x00800001;
    constexpr std::uint32_t kOther = 0x00C00002;
    // Where the writer is killed, the slots still hold an argument and a thread.
    for (const int skipped : {1, 2}) {
        Block block;
        for (std::uint32_t i = 0; i < 41; ++i) {
            block.Record(kEvent, 1000 + i, {i, i % 2 == 0 ? 0x111U : 0x222U});
            if (i == 29) {
                block.Record(kOther, 1030, {1, 2, 0x222}).Record(kOther, 1030, {1, 2, 0x222});
            }
        }
        for (int i = 0; i < skipped; ++i) {
            block.Skip();
        }
        for (std::uint32_t i = 0; i < 5; ++i) {
            block.Record(kOther, 2000 + i, {i, i, 0x222});
        }
        block.Write("stale", 64);
        const Result result = Post({"systrace", "stale", "--json"});
        EXPECT_EQ(result.code, 0) << result.output;
        EXPECT_TRUE(result.Finds("stale-entry"));
        const Json json = result.Parsed();
        EXPECT_EQ(json["counts"]["stale_entries"], skipped);
        EXPECT_EQ(json["counts"]["torn"], 0);
        const Json last = json["records"][json["records"].size() - 6];
        EXPECT_EQ(last["state"], "whole");
        EXPECT_EQ(last["thread"], "0x00000111");
        EXPECT_EQ(Arguments(last), (std::vector<std::uint32_t>{40}));
    }
}

TEST_F(PostMortem, TakesFromTheNewestCopyOfABlockWhatItHasAndTheRestFromOlderOnes) {
    Block block = TenRecords();
    block.Write("before", 32);
    block.Record(0x00800001, 1010, {10, 0x111}).Record(0x00800001, 1011, {11, 0x111}).Write("later", 32);
    std::map<std::string, std::string> told;
    const Json shown = Post({"show", ".", "--json"}).Parsed();
    for (const Json& event : shown["events"]) {
        told[event["file"]] += event["arguments"][0].dump() + ' ';
    }
    EXPECT_EQ(told["before"], "0 1 ");
    EXPECT_EQ(told["later"], "2 3 4 5 6 7 8 9 10 11 ");
}

namespace {

/// What two threads write that take turns, in a process whose stacks lie this much lower: into the binary
/// trace and a ring.
void TraceInTurns(std::size_t shift, std::uint32_t first, std::uint32_t count) {
    InGoodChild([&] {
        if (mmap(nullptr, shift, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0) ==
            MAP_FAILED) {
            std::abort();
        }
        SysTraceConfigure();
        TRACE_RING_HANDLE panel = nullptr;
        GetTraceRingBuffer(10, &panel);
        std::atomic<std::uint32_t> turn{0};
        InThreads(2, [&](std::uint32_t writer) {
            for (std::uint32_t i = writer; i < count; i += 2) {
                while (turn != i) {
                    std::this_thread::yield();
                }
                RTTrace_1(SYSTRACE_ID(9, 0, 3), first + i);
                WriteEventToRingBuffer(panel, 0, 5, first + i, 2, 3, 4);
                ++turn;
            }
        });
    });
}

} // namespace

// A process that takes the rings over starts each one at slot 0.
TEST_F(PostMortem, TellsProcessesApartThatUsedTheSegmentsOneAfterTheOther) {
    TraceInTurns(std::size_t{1} << 20, 0, 100);
    TraceInTurns(std::size_t{700} << 20, 1000, 40);
    const auto check = [](const std::vector<std::string>& call, const char* words, std::size_t argument,
                          std::uint32_t first) {
        std::vector<std::string> asJson = call;
        asJson.emplace_back("--json");
        const Result result = Post(asJson);
        ASSERT_EQ(result.code, 0) << result.output;
        EXPECT_TRUE(result.Finds("process-change"));
        const Json json = result.Parsed();
        EXPECT_EQ(json["processes"].size(), 2U);
        ASSERT_EQ(json["records"].size(), 140U - first);
        for (std::uint32_t i = first; i < 140; ++i) {
            const Json& record = json["records"][i - first];
            EXPECT_EQ(record["process"], i < 100 ? 1 : 2);
            EXPECT_EQ(record.at(words)[argument], i < 100 ? i : 900 + i);
        }
        EXPECT_NE(Post(call).output.find("\nprocess 2, boot unknown\n"), std::string::npos);
    };
    check({"systrace", "SysTrace Buffer", "--component", "9"}, "arguments", 0, 0);
    check({"rings", "System Ring Buffers"}, "words", 1, 40);

    // In the folder, both have the same numbers in the trace as in the rings.
    ASSERT_EQ(Post({"timeline", ".", "-o", "out.json"}).code, 0);
    std::map<std::string, std::set<std::pair<bool, std::size_t>>> seen;
    const Json trace = Json::parse(ReadFile("out.json"));
    for (const Json& event : trace["traceEvents"]) {
        if (event["ph"] == "i") {
            EXPECT_TRUE(event["args"]["boot"].is_null());
            const bool second = std::stoul(event["args"].value("argument 1", "0"), nullptr, 16) >= 1000;
            seen[event["cat"]].insert({second, event["args"]["process"].get<std::size_t>()});
        }
    }
    EXPECT_EQ(seen["ring"], (std::set<std::pair<bool, std::size_t>>{{false, 1}, {true, 2}}));
    EXPECT_EQ(seen["binary"], seen["ring"]);
}

TEST_F(PostMortem, TellsABootByItsThreadsAndItsClock) {
    // The clock of the second process starts anew: nothing here contradicts itself.
    constexpr std::uint32_t kEvent = 0x02400003;
    const auto write = [&](const std::vector<std::vector<std::uint32_t>>& threads, std::int64_t apart,
                           std::int64_t second) {
        Block block;
        for (std::size_t phase = 0; phase < threads.size(); ++phase) {
            for (std::uint32_t i = 0; i < 30; ++i) {
                const std::int64_t time = (phase == 0 ? 3'000'000'000 : second) + i * apart;
                block.Record(kEvent, static_cast<std::uint32_t>(CounterAt(time)),
                             {i, threads[phase][i % threads[phase].size()]});
            }
        }
        block.Write("block", 512);
        return Post({"systrace", "block", "--json"});
    };
    constexpr std::int64_t kSteady = 70'000'000;
    const Result reboot = write({{0x10001, 0x10002}, {0x20001, 0x20002}}, kSteady, 200'000'000);
    EXPECT_TRUE(reboot.Finds("process-change"));
    EXPECT_FALSE(reboot.Finds("clock-break"));
    // Threads that end and start: one goes on, only one is there, or two make room for one.
    using Phases = std::vector<std::vector<std::uint32_t>>;
    for (const Phases& threads :
         {Phases{{0x10001, 0x10002}, {0x10001, 0x10003}}, Phases{{0x10001}, {0x10002}},
          Phases{{0x10001, 0x10002}, {0x10003}}, Phases{{0x10001}, {0x10002, 0x10003}}}) {
        const Result one = write(threads, kSteady, 6'000'000'000);
        EXPECT_FALSE(one.Finds("process-change")) << one.output;
        EXPECT_EQ(one.Parsed()["processes"].size(), 1U);
    }
    // Threads that get the processor in turn, for some milliseconds each.
    EXPECT_FALSE(
        write({{0x10001, 0x10002}, {0x20001, 0x20002}}, 100'000, 3'004'000'000).Finds("process-change"));
}

// Threads that trace but write no lines are of the process of the logs, unless they are too far away.
TEST(Owners, OfRecordsAreTheProcessesThatHaveTheirThreads) {
    using namespace NimaPost;
    using Number = std::optional<std::size_t>;
    Processes processes;
    ProcessFacts facts;
    facts.boot = 3;
    facts.threads = {0x1000, 0x2000};
    processes.Add(facts);
    facts.threads = {0x1000, 0x1100, 0xA0000000};
    const Owners owners(processes, facts);
    EXPECT_EQ(owners.ProcessOf(0x1000), Number(1));
    EXPECT_EQ(owners.ProcessOf(0x1100), Number(1));
    EXPECT_EQ(owners.BootOf(0x1100), Number(3));
    EXPECT_EQ(owners.ProcessOf(0xA0000000), Number());
    EXPECT_FALSE(processes[1].recordsProbable);
    // Where identifiers recur, those that only one process shows may be of another that wrote no such lines.
    facts.threads = {0x1000, 0x3000};
    processes.Add(facts);
    facts.threads = {0x3000};
    EXPECT_EQ(Owners(processes, facts).ProcessOf(0x3000), Number(2));
    EXPECT_TRUE(processes[2].recordsProbable);
    // One that wrote no lines by these threads may be the same as one that wrote lines by others.
    for (const auto& [thread, isNear] : {std::pair(0x5000U, true), std::pair(0x90000000U, false)}) {
        facts.threads = {thread};
        const auto added = Owners(processes, facts).ProcessOf(thread);
        ASSERT_TRUE(added);
        EXPECT_EQ(processes[*added].proof.find("may be the same") != std::string::npos, isNear);
    }
}

// The first slots of a process that went round its rings are gone, and with them the step to what stands
// last.
TEST_F(PostMortem, FindsTheNewestRecordOfAProcessThatAnotherTookAFullRingFrom) {
    std::string text = kPanelDump;
    // 400 records of a process, a record every 2.5 ms, then 64 of another.
    for (unsigned slot = 0; slot < 256; ++slot) {
        const unsigned number = slot < 64 ? 400 + slot : slot < 144 ? 256 + slot : slot;
        text += RingLine(5'000'000'000 + number * std::int64_t{2'500'000},
                         (slot < 64 ? 0x90000000U : 0x111U) + slot % 2, number);
    }
    WriteFile("rings.txt", text + kDumpEnd);
    const Result result = Post({"rings", "rings.txt", "--json"});
    EXPECT_TRUE(result.Finds("process-change") && result.Finds("uncertain-seam")) << result.output;
    const Json json = result.Parsed();
    ASSERT_EQ(json["records"].size(), 256U);
    for (unsigned i = 0; i < 192; ++i) {
        EXPECT_EQ(json["records"][i]["words"][1], i < 112 ? 144 + i : 208 + i);
    }
}

TEST_F(PostMortem, SaysThatADumpThatWasKilledHasSwitchedTracingOff) {
    const int status = InChild([] {
        SysTraceConfigure();
        RTTrace_1(SYSTRACE_ID(9, 0, 3), 1);
        DumpSysTraceEx([](const char*, int, int*, void*) { return ::raise(SIGKILL); }, nullptr);
    });
    ASSERT_TRUE(WIFSIGNALED(status));
    const auto shows = [](const Result& result, const std::string& words) {
        return result.output.find(words) != std::string::npos;
    };
    const Result segment = Post({"systrace", "SysTrace Buffer", "--json"});
    EXPECT_EQ(segment.code, 0);
    EXPECT_TRUE(segment.Finds("filter-cleared"));
    EXPECT_EQ(segment.Parsed()["header"]["tracing"], "suspended");
    EXPECT_TRUE(shows(Post({"systrace", "SysTrace Buffer"}),
                      "1 (nothing is traced, the filter lets nothing through and one is set aside)"));
    EXPECT_TRUE(shows(segment, "which speaks for the dump"));
    EXPECT_TRUE(shows(Post({"watch", "--count", "1"}), "nothing through and one is set aside"));

    // The next dump saves the cleared filter: what there was is lost.
    InGoodChild(Dump);
    for (const char* file : {"trace.bin", "SysTrace Buffer"}) {
        const Result off = Post({"systrace", file, "--json"});
        EXPECT_TRUE(off.Finds("filter-cleared"));
        EXPECT_EQ(off.Parsed()["header"]["tracing"], "off");
        EXPECT_TRUE(
            shows(Post({"systrace", file}), "1 (nothing is traced, the filter lets nothing through)"));
    }
    EXPECT_TRUE(shows(Post({"watch", "--count", "1"}),
                      "SysTrace  nothing is traced, the filter lets nothing through,"));
    InGoodChild([] {
        SysTraceConfigure();
        SysTraceSetAllLevel(0, true);
        Dump();
    });
    for (const char* file : {"trace.bin", "SysTrace Buffer"}) {
        const Result on = Post({"systrace", file, "--json"});
        EXPECT_FALSE(on.Finds("filter-cleared"));
        EXPECT_EQ(on.Parsed()["header"]["tracing"], "on");
    }
}

namespace {

/// How times were tied.
std::string TiedBy(const Json& timeline, const std::string& code) {
    std::string text;
    for (const Json& finding : timeline["otherData"]["clock"]) {
        text += finding["code"] == code ? finding["sentence"].get<std::string>() : std::string();
    }
    return text;
}

} // namespace

TEST_F(PostMortem, ReadsDamagedHeadersAndFilesThatWereCutAnywhere) {
    TenRecords().Write("whole", 32);
    const std::string whole = ReadFile("whole");
    // A field of the header that disagrees with the others is outvoted.
    const Json records = Post({"systrace", "whole", "--json"}).Parsed()["records"];
    for (const std::size_t field : {offsetof(SysTraceHeader, entryCount), offsetof(SysTraceHeader, indexMask),
                                    offsetof(SysTraceHeader, bufferSize)}) {
        std::string damaged = whole;
        damaged[field] = static_cast<char>(damaged[field] ^ 0x40);
        WriteFile("damaged", damaged);
        const Result result = Post({"systrace", "damaged", "--json"});
        EXPECT_EQ(result.code, 1) << field;
        EXPECT_TRUE(result.Finds("header-contradiction")) << result.errors;
        EXPECT_EQ(result.Parsed()["records"], records) << field;
    }
    std::filesystem::remove("damaged");
    std::size_t most = 0;
    for (std::size_t length = 0; length < whole.size(); length += 13) {
        WriteFile("cut", whole.substr(0, length));
        const Result result = Post({"systrace", "cut", "--json"});
        if (length < SYSTRACE_HEADER_SIZE) {
            EXPECT_EQ(result.code, 2) << length;
            continue;
        }
        ASSERT_TRUE(result.code == 0 || result.code == 1) << length;
        const Json json = result.Parsed();
        EXPECT_GE(json["records"].size(), most);
        most = json["records"].size();
        EXPECT_EQ(result.code, length < SYSTRACE_HEADER_SIZE + 240 ? 1 : 0) << length;
    }
    EXPECT_EQ(most, 10U);
    EXPECT_EQ(Post({"crash", "."}).code, 2);
    EXPECT_EQ(Post({"--help"}).code, 0);
}

TEST_F(PostMortem, ReadsTheRingsFromTheSegmentAndFromBothTexts) {
    InGoodChild([] {
        TRACE_RING_HANDLE panel = nullptr;
        TRACE_RING_HANDLE copier = nullptr;
        GetTraceRingBuffer(10, &panel);
        GetTraceRingBuffer(16, &copier);
        for (unsigned long i = 0; i < 300; ++i) { // 256 records: it wraps
            WriteEventToRingBuffer(panel, 0, 5, i, 2, 3, 4);
        }
        WriteEventToRingBuffer(copier, 0x77, 6, 1, 2, 3, 4);
        std::array<wchar_t, 16> path{L"rings.txt"};
        DumpRingBuffersUnformatted(path.data(), 0);
    });
    std::string indexed = ReadFile("rings.txt");
    indexed.replace(indexed.find("Buffer Panel #"), 13, "Buffer 10 ");
    WriteFile("indexed.txt", indexed);
    for (const char* file : {"System Ring Buffers", "rings.txt", "indexed.txt"}) {
        const Result result = Post({"rings", file, "--json", "--ring", "Panel"});
        ASSERT_EQ(result.code, 0) << file << result.output;
        const Json json = result.Parsed();
        ASSERT_EQ(json["rings"].size(), 1U);
        EXPECT_EQ(json["rings"][0]["used"], 256);
        EXPECT_EQ(json["rings"][0]["wrapped"], "probably");
        ASSERT_EQ(json["records"].size(), 256U);
        for (std::uint32_t i = 0; i < 256; ++i) {
            EXPECT_EQ(json["records"][i]["words"], (std::vector<std::uint32_t>{5, 44 + i, 2, 3, 4}));
        }
    }
    const Json merged = Post({"rings", "System Ring Buffers", "--json", "--merge", "--last", "2"}).Parsed();
    EXPECT_EQ(merged["records"][0]["ring"], "Panel");
    EXPECT_EQ(merged["records"][1]["ring"], "Copier");
    EXPECT_EQ(merged["records"][1]["thread"], "0x00000077");
    EXPECT_EQ(merged["process"].get<int>() > 0, true);

    std::string cut = ReadFile("System Ring Buffers").substr(0, RING_DIRECTORY_SIZE + 40);
    WriteFile("cut", cut);
    EXPECT_EQ(Post({"rings", "cut"}).code, 1);
    WriteFile("cut", cut.substr(0, 100));
    EXPECT_EQ(Post({"rings", "cut"}).code, 2);
    EXPECT_EQ(Post({"rings", "/etc/passwd"}).code, 2);
    WriteFile("cut.txt", indexed.substr(0, indexed.size() / 2));
    EXPECT_EQ(Post({"rings", "cut.txt"}).code, 1);
}

namespace {

/// A text dump of one ring of 256 records, the oldest at slot 100, that was begun `afterNewest` after the
/// newest. Times are nanoseconds since the device started.
void WriteRingDump(const std::string& path, const std::vector<std::int64_t>& times,
                   std::int64_t afterNewest) {
    std::string text = "Current Date/Time: 0126-10-24 15:54:50.16413\r\nTicks: " +
                       std::to_string(CounterAt(times.back() + afterNewest)) +
                       "\r\nFrequency: 1000000\r\n\r\n\r\n" + kPanelDump;
    for (unsigned slot = 0; slot < 256; ++slot) {
        const unsigned number = (slot + 156) % 256;
        text += RingLine(times.at(number), 0x111, number);
    }
    WriteFile(path, text + kDumpEnd);
}

/// The segment of that ring, to which three records were added after the dump.
void WriteRingSegment(const std::vector<std::int64_t>& times) {
    InGoodChild([&] {
        TRACE_RING_HANDLE panel = nullptr;
        GetTraceRingBuffer(10, &panel);
        for (std::uint32_t i = 0; i < 100 + 259; ++i) {
            const std::uint32_t number = i < 100 ? i : i - 100; // the first are written over
            const std::int64_t time = number < 256 ? times[number] : times.back() + number - 255;
            RingBufferData data{CounterAt(time), 0x111, {5, number, 2, 3, 4}};
            WriteDataToRingBuffer(panel, &data);
        }
    });
}

} // namespace

// The ring's seam is not its widest step if the dump's head says which record is the newest.
TEST_F(PostMortem, FindsARingsNewestRecordByTheHeadOfItsDump) {
    std::vector<std::int64_t> times;
    const auto ends = [&times](std::int64_t step, std::int64_t pause, std::int64_t afterNewest) {
        times = {5'000'000'000};
        while (times.size() < 256) {
            times.push_back(times.back() + (times.size() == 101 ? pause : step));
        }
        WriteRingDump("rings.txt", times, afterNewest);
        const Json json = Post({"rings", "rings.txt", "--json"}).Parsed();
        return std::pair(json["records"].front()["words"][1].get<int>(),
                         json["records"].back()["words"][1].get<int>());
    };
    const std::pair inOrder(0, 255);
    // A pause of 0.95 s, where the seam's step is 0.5 s.
    EXPECT_EQ(ends(21'850'000, 950'000'000, 50'000), inOrder);
    EXPECT_EQ(Post({"rings", "rings.txt", "--json"}).Parsed()["rings"][0]["wrapped"], "probably");
    // The segment, of which the steps alone tell another place, goes by what the dump lacks.
    WriteRingSegment(times);
    EXPECT_EQ(Post({"rings", "System Ring Buffers", "--json"}).Parsed()["records"].back()["words"][1], 100);
    const Json story = Post({"show", ".", "--json"}).Parsed();
    const Json& events = story["events"];
    ASSERT_EQ(events.size(), 259U);
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i]["arguments"][0], i) << events[i].dump();
    }
    unlink("System Ring Buffers");
    // A record written just after the head.
    EXPECT_EQ(ends(21'850'000, 950'000'000, -200'000), inOrder);
    // A ring that was idle before the dump: then the head tells nothing, but the steps do.
    EXPECT_EQ(ends(1'960'000, 1'960'000, 300'000'000), inOrder);
    // Records that are seconds apart.
    EXPECT_EQ(ends(1'234'567'890, 2'950'000'000, 20'000), inOrder);
    // Where every step and every record fits as well as any other, whoever shows the events says so.
    ends(394'531'249, 394'531'249, 700'000'000);
    EXPECT_TRUE(Post({"rings", "rings.txt", "--json"}).Finds("uncertain-seam"));
    for (const char* command : {"timeline", "report"}) {
        ASSERT_EQ(Post({command, ".", "-o", "out"}).code, 0);
        EXPECT_NE(ReadFile("out").find("nothing recorded shows for certain"), std::string::npos) << command;
    }
}

TEST_F(PostMortem, FiltersLinesAndReadsBackupsFirst) {
    const std::string date = "1024150926.46886";
    WriteFile("a.log.1", Calibration(100, date) + LogLine(200, "<WARN> <One> first\r\nmore of it") +
                             "300 <0x00000002:-02> <DEBUG> <Two> second\r\n");
    WriteFile("a.log", Calibration(400, date, 2) + LogLine(500, "<FATAL> <Two> third", 2));
    const auto messages = [](const std::vector<std::string>& more) {
        std::vector<std::string> arguments{"log", "a.log", "--json"};
        arguments.insert(arguments.end(), more.begin(), more.end());
        std::string all;
        const Json json = Post(arguments).Parsed();
        for (const Json& line : json["lines"]) {
            all += line["message"].get<std::string>().substr(0, 11) + "|";
        }
        return all;
    };
    EXPECT_EQ(messages({}), "Calibration|first|more of it|second|Calibration|third|");
    EXPECT_EQ(messages({"--level", "warn"}), "first|more of it|");
    EXPECT_EQ(messages({"--boot", "1", "--level", "FATAL"}), "third|");
    EXPECT_EQ(Post({"log", "a.log", "--boot", "9"}).code, 2);
    EXPECT_EQ(messages({"--level", "WARN+"}), "first|more of it|third|");
    EXPECT_EQ(messages({"--tracer", "Two", "--thread", "0x2"}), "second|third|");
    EXPECT_EQ(messages({"--text", "THIRD", "-i"}), "third|");
    EXPECT_EQ(messages({"--text", "more of"}), "first|more of it|");
    EXPECT_EQ(messages({"--alone", "--text", "second"}), "");
    const Result text = Post({"log", "a.log", "--level", "DEBUG"});
    EXPECT_NE(text.output.find("2026-11-24 15:09:26.046885900 ~ 300 <0x00000002:-02> <DEBUG> <Two> second\n"),
              std::string::npos)
        << text.output;
    EXPECT_EQ(Post({"log", "a.log", "--level", "LOUD"}).code, 2);
    EXPECT_EQ(Post({"log", "a.log", "missing.log"}).code, 1);
    EXPECT_EQ(Post({"log", "missing.log"}).code, 2);
    // A roll that was broken off leaves only the backup.
    WriteFile("broken.log.1", LogLine(1, "<WARN> <One> left"));
    const Result broken = Post({"log", "broken.log"});
    EXPECT_EQ(broken.code, 1);
    EXPECT_TRUE(broken.output.ends_with("left\n")) << broken.output;
    EXPECT_NE(broken.errors.find("damaged: "), std::string::npos);
    WriteFile("escape.log", LogLine(1, "<WARN> <One> \x1b[31m red \xff"));
    EXPECT_NE(Post({"log", "escape.log"}).output.find("\\x1b[31m red \\xff"), std::string::npos);
    WriteFile("unseen.log", "1 <0x00000001:000> <WARN> <One> a\u200bb \u202egpj\ufeff, caf\u00e9\r\n");
    EXPECT_NE(Post({"log", "unseen.log"}).output.find("a\\u200bb \\u202egpj\\ufeff, caf\u00e9\n"),
              std::string::npos);
}

TEST_F(PostMortem, TellsWhatADeadDeviceLeft) {
    static std::array<wchar_t, 16> crashLog{L"crash.txt"};
    static std::array<wchar_t, 16> folder{L"triage"};
    const int status = InChild([] {
        TraceServices::ConfigureDefaultLog(L"device.log", 1 << 20, 0, true);
        SysTraceConfigure();
        g_CrashLogFile = crashLog.data();
        g_TriageFilePath = folder.data();
        TRACE_RING_HANDLE panel = nullptr;
        GetTraceRingBuffer(10, &panel);
        WriteEventToRingBuffer(panel, 0, 0x51, 1, 2, 3, 4);
        RTTrace_1(SYSTRACE_ID(9, 0, 3), 0xabc);
        NimaTrace trace("Fuser");
        trace.WriteErrorV("too hot: %d", 250);
        const std::array<std::int32_t, 2> extra{0x11, -1};
        DeviceFatalErrorExtra(0x31AC05, "fuser.cpp", 42, 2, extra.data());
    });
    EXPECT_EQ(WEXITSTATUS(status), 0x05);

    const Result crash = Post({"crash", "crash.txt", "--json"});
    ASSERT_EQ(crash.code, 0) << crash.output;
    const Json json = crash.Parsed();
    EXPECT_EQ(json["failure"]["Error Code"], "31AC05");
    EXPECT_EQ(json["failure"]["File Name"], "fuser.cpp");
    EXPECT_EQ(json["extra_words"][0], "0x11");
    EXPECT_EQ(json["active_rings"].size(), 2U); // One is the library's own.
    WriteFile("cut.txt", ReadFile("crash.txt").substr(0, 700));
    EXPECT_EQ(Post({"crash", "cut.txt"}).code, 1);
    unlink("cut.txt");

    const Result timeline = Post({"timeline", ".", "-o", "out.json"});
    ASSERT_EQ(timeline.code, 0) << timeline.output;
    const Json trace = Json::parse(ReadFile("out.json"));
    // The trace was dumped and the rings were printed for this crash.
    EXPECT_NE(TiedBy(trace, "rings-tied").find("none is after its head"), std::string::npos);
    EXPECT_NE(TiedBy(trace, "trace-tied").find("the crash log's"), std::string::npos);
    std::map<std::string, std::vector<double>> times;
    for (const Json& event : trace["traceEvents"]) {
        for (const char* text : {"too hot: 250", "0xabc", "code 0x51", "reported by a component"}) {
            if (event["ph"] == "i" && event.dump().find(text) != std::string::npos) {
                times[text].push_back(event["ts"]);
            }
        }
    }
    // Dump, segment and crash log hold the same records; each is shown once.
    ASSERT_EQ(times.size(), 4U);
    for (const auto& [text, each] : times) {
        EXPECT_EQ(each.size(), 1U) << text;
    }
    const double after = times["reported by a component"][0] - times["too hot: 250"][0];
    EXPECT_GT(after, 0);
    EXPECT_LT(after, 60e6);

    EXPECT_EQ(Post({"report", ".", "-o", "report.html"}).code, 0);
    EXPECT_EQ(Post({"report", ".", "-o", "no/such/folder.html"}).code, 2);
    EXPECT_EQ(Post({"timeline", "no-such-folder", "-o", "out.json"}).code, 2);
}

namespace {

std::string EventRecordBytes(const std::string& user) {
    VantorCallbackStruct head{};
    head.totalSize = sizeof(VantorCallbackStruct) + std::size_t{2} * VANTOR_ENTRY_SIZE;
    head.version = VANTOR_RECORD_VERSION;
    head.eventType = 6;
    head.eventId = 2;
    head.sourceSize = VANTOR_SOURCE_SIZE;
    head.entryAreaSize = 2 * VANTOR_ENTRY_SIZE;
    std::string("DeviceHost").copy(head.source, sizeof(head.source));
    std::string bytes(reinterpret_cast<const char*>(&head), sizeof(head));
    const std::array<std::string, 2> pairs{"User," + user, "Page,0"};
    for (std::uint32_t i = 0; i < pairs.size(); ++i) {
        VantorEntry entry{};
        entry.size = VANTOR_ENTRY_SIZE;
        entry.type = i + 1;
        entry.textLength = static_cast<std::uint32_t>(pairs[i].size());
        pairs[i].copy(entry.text, VANTOR_TEXT_SIZE - 1);
        bytes.append(reinterpret_cast<const char*>(&entry), sizeof(entry));
    }
    return bytes;
}

} // namespace

TEST_F(PostMortem, ReadsEventRecordsAloneAndInAFolder) {
    WriteFile("record.bin", EventRecordBytes("someone"));
    const Result alone = Post({"event", "record.bin", "--json"});
    ASSERT_EQ(alone.code, 0) << alone.errors;
    EXPECT_EQ(alone.Parsed()["source"], "DeviceHost");
    EXPECT_EQ(alone.Parsed()["pairs"][0],
              (Json{{"key", "User"}, {"value", "someone"}, {"hashed", true}, {"cut", false}}));
    // A folder with nothing else shows it as well.
    WriteFile("names", "component 3 Engine\n");
    EXPECT_TRUE(IsShown("type 6, id 2: User=someone (to be hashed), Page=0"));

    WriteFile("record.bin", EventRecordBytes(std::string(300, 'x')));
    EXPECT_TRUE(Post({"event", "record.bin", "--json"}).Finds("text-cut"));
    WriteFile("record.bin", EventRecordBytes("someone").substr(0, 400));
    const Result cut = Post({"event", "record.bin", "--json"});
    EXPECT_EQ(cut.code, 1);
    EXPECT_TRUE(cut.Finds("file-cut"));
    EXPECT_EQ(cut.Parsed()["pairs"].size(), 1U);
    std::string other = EventRecordBytes("someone");
    other[4] = 2;
    WriteFile("record.bin", other);
    EXPECT_EQ(Post({"event", "record.bin"}).code, 2);
}

TEST_F(PostMortem, PutsAnEventRecordWhereTheRingTellsOfItsCall) {
    InGoodChild([] {
        SetupEventLogCallbacks([](EventTypes, const wchar_t*, unsigned long, const wchar_t*, int,
                                  const wchar_t*) { return 0UL; },
                               [](EventTypes, unsigned long size, unsigned char* record) {
                                   WriteFile("record.bin",
                                             std::string(reinterpret_cast<const char*>(record), size));
                                   return 0UL;
                               });
        TRACE_RING_HANDLE panel = nullptr;
        GetTraceRingBuffer(10, &panel);
        WriteEventToRingBuffer(panel, 0, 5, 1, 2, 3, 4);
        SimpleDiagnosticPayload payload("someone", "page 0");
        EventLog::LogEvent(6, "DeviceHost", 2, payload);
        WriteEventToRingBuffer(panel, 0, 5, 2, 2, 3, 4);
    });
    ASSERT_EQ(Post({"timeline", ".", "-o", "out.json"}).code, 0);
    std::map<std::string, double> times;
    const Json trace = Json::parse(ReadFile("out.json"));
    for (const Json& event : trace["traceEvents"]) {
        if (event["ph"] == "i") {
            times[event["name"].get<std::string>().substr(0, 27)] = event["ts"];
        }
    }
    ASSERT_TRUE(times.contains("DeviceHost: type 6, id 2: C")) << trace;
    EXPECT_LE(times["Panel: code 0x5 0x1 0x2 0x3"], times["DeviceHost: type 6, id 2: C"]);
    EXPECT_LE(times["DeviceHost: type 6, id 2: C"], times["Panel: code 0x5 0x2 0x2 0x3"]);
}

// One wording: what `systrace` prints of a record is what the timeline and `show` tell.
TEST_F(PostMortem, TellsATornRecordInTheSameWordsEverywhere) {
    constexpr std::uint32_t kEvent = 0x00C00002;
    Block block = TenRecords();
    block.Add(kEvent, 2000).Add(kEvent | SYSTRACE_CONTINUATION, 71).Write("SysTrace Buffer");
    WriteFile("names", "component 3 Engine\nevent Engine 2 page \"page %u of %u\"\n");
    const std::string words = "page 0x47  [torn]";
    EXPECT_NE(
        Post({"systrace", "SysTrace Buffer", "--names", "names"}).output.find("level 0  " + words + "\n"),
        std::string::npos);
    Post({"timeline", ".", "-o", "out.json", "--names", "names"});
    EXPECT_NE(ReadFile("out.json").find("\"Engine: " + words + "\""), std::string::npos);
    EXPECT_TRUE(IsShown(words));
}

TEST_F(PostMortem, ShowsTimesWithTheSameDigitsAndMarksEverywhere) {
    const std::string date = "1024163100.46886";
    WriteFile("device.log", Calibration(500'000'000, date) + LogLine(500'000'123, "<WARN> <One> first") +
                                Calibration(500'000'200, date) + LogLine(500'000'323, "<WARN> <One> second"));
    WriteFile("undated.log", LogLine(500'000'223, "<WARN> <One> third"));
    const std::vector<std::string> lines = Lines(Post({"log", "device.log"}).output);
    EXPECT_TRUE(lines.at(1).starts_with("2026-11-24 16:31:00.046886123 ~ "));
    ASSERT_EQ(Post({"timeline", ".", "-o", "out.json"}).code, 0);
    const Json trace = Json::parse(ReadFile("out.json"));
    std::map<std::string, std::string> told;
    for (const Json& event : trace["traceEvents"]) {
        if (event["ph"] == "i") {
            const Json& about = event["args"];
            told[about["message"]] =
                about["time"].get<std::string>() + " " + about["mark"].get<std::string>();
        }
    }
    EXPECT_TRUE(lines.at(1).starts_with(told.at("first") + " ")) << told.at("first");
    EXPECT_TRUE(lines.at(3).starts_with(told.at("second") + " ")) << told.at("second");
    EXPECT_TRUE(told.at("third").ends_with(" ?")) << told.at("third");
    EXPECT_EQ(trace["otherData"]["marks"].size(), 5U);
    // Where nothing has a date, times count from the first line, which takes no assumption.
    std::filesystem::remove("device.log");
    EXPECT_TRUE(Post({"log", "undated.log"}).output.starts_with("+0.000000000 ~ "));
    EXPECT_TRUE(Post({"show", "."}).output.starts_with("+0.000000000 ~ "));
}

TEST_F(PostMortem, NeverWritesOverWhatItReads) {
    const std::string evidence = LogLine(1, "<WARN> <One> evidence");
    WriteFile("device.log", evidence);
    WriteFile("unknown", "whatever this is, it came from the device");
    WriteFile("words", "component 3 Engine\n");
    WriteFile("settings.html", "<!doctype html>\n<title>Device settings</title>\n");
    ASSERT_EQ(link("device.log", "other name"), 0);
    ASSERT_EQ(symlink("unknown", "link"), 0);
    const std::vector<std::string> before = Listing(".");
    for (const char* command : {"report", "timeline"}) {
        for (const char* target :
             {"device.log", "./device.log", "other name", "unknown", "link", "words", "settings.html"}) {
            const Result result = Post({command, ".", "-o", target, "--names", "words"});
            EXPECT_EQ(result.code, 2) << command << ' ' << target;
            EXPECT_NE(result.errors.find("another name"), std::string::npos) << result.errors;
        }
    }
    EXPECT_EQ(Listing("."), before);
    EXPECT_EQ(ReadFile("device.log"), evidence);
    // What the program wrote itself may be overwritten.
    for (int time = 0; time < 2; ++time) {
        EXPECT_EQ(Post({"report", ".", "-o", "report.html"}).code, 0);
        EXPECT_EQ(Post({"timeline", ".", "-o", "out.json"}).code, 0);
    }
}

TEST_F(PostMortem, CompressesATimelineWhoseNameSaysSo) {
    std::string log;
    for (int i = 0; i < 1'000; ++i) {
        log += LogLine(i, "<WARN> <\"One\"> caf\xC3\xA9 \xFF \x01 " + std::to_string(i * i));
    }
    std::filesystem::create_directory("unit");
    WriteFile("unit/device.log", log);
    ASSERT_EQ(Post({"timeline", "unit", "-o", "out.json"}).code, 0);
    // The second time it is in the folder, and is written over like any other timeline.
    for (int time = 0; time < 2; ++time) {
        ASSERT_EQ(Post({"timeline", "unit", "-o", "unit/out.json.gz"}).code, 0);
    }
    ASSERT_EQ(std::system("gzip -dc unit/out.json.gz > plain.json"), 0);
    const Json timeline = Json::parse(ReadFile("plain.json"));
    EXPECT_EQ(timeline["traceEvents"], Json::parse(ReadFile("out.json"))["traceEvents"]);
    EXPECT_EQ(timeline["traceEvents"][999]["args"]["message"], "caf\xC3\xA9 \xEF\xBF\xBD \x01 998001");
    EXPECT_EQ(timeline["traceEvents"][999]["name"], "WARN \"One\"");

    // What the disk does not take is told of, and an earlier file stays.
    ASSERT_EQ(symlink("/dev/full", "full.gz"), 0);
    const Result full = Post({"timeline", "unit", "-o", "full.gz"});
    EXPECT_EQ(full.code, 2);
    EXPECT_NE(full.errors.find("No space left on device"), std::string::npos) << full.errors;
    const std::string before = ReadFile("unit/out.json.gz");
    const int status = InChild([] {
        const rlimit most{4096, 4096};
        setrlimit(RLIMIT_FSIZE, &most);
        signal(SIGXFSZ, SIG_IGN);
        std::exit(Post({"timeline", "unit", "-o", "unit/out.json.gz"}).code);
    });
    EXPECT_EQ(WEXITSTATUS(status), 2);
    EXPECT_TRUE(ReadFile("unit/out.json.gz") == before);
    EXPECT_EQ(Listing("unit"), (std::vector<std::string>{"device.log", "out.json.gz"}));
}

/// Simulates files that cannot be read to their end. Of a file called "failing" or "shrinking" only the first
/// bytes can be read; the first is on a bad medium, the second has become shorter. A file called "emptied"
/// becomes empty once it has been read from its start four times.
extern "C" ssize_t ReadOrFail(int file, void* bytes, size_t count, off64_t offset) __asm__("pread64");
extern "C" ssize_t ReadOrFail(int file, void* bytes, size_t count, off64_t offset) {
    constexpr off64_t kReadable = 100;
    std::array<char, 256> name{};
    const std::string link = "/proc/self/fd/" + std::to_string(file);
    const bool known = readlink(link.c_str(), name.data(), name.size() - 1) > 0;
    const std::string path = known ? name.data() : "";
    const bool fails = path.ends_with("/failing");
    if ((fails || path.ends_with("/shrinking")) && offset + static_cast<off64_t>(count) > kReadable) {
        if (offset >= kReadable) {
            errno = EIO;
            return fails ? -1 : 0;
        }
        count = static_cast<size_t>(kReadable - offset);
    }
    static int begun = 0;
    if (path.ends_with("/emptied") && (begun += offset == 0 ? 1 : 0) > 4) {
        return 0;
    }
    using Function = ssize_t (*)(int, void*, size_t, off64_t);
    static const auto next = reinterpret_cast<Function>(dlsym(RTLD_NEXT, "pread64"));
    return next(file, bytes, count, offset);
}

TEST_F(PostMortem, ReportsWhatCannotBeReadToItsEnd) {
    std::string lines;
    for (int i = 0; i < 10; ++i) {
        lines += LogLine(i + 1, "<WARN> <One> line " + std::to_string(i));
    }
    WriteFile("device.log", lines);
    for (const char* name : {"failing", "shrinking"}) {
        for (const std::string& content : {lines, std::string(400, 'x'), EventRecordBytes("someone")}) {
            WriteFile(name, content);
            const Result report = Post({"report", ".", "-o", "report.html", "--json"});
            EXPECT_EQ(report.code, 1) << name;
            EXPECT_TRUE(report.Finds("cannot-read")) << report.output;
        }
        for (const char* command : {"log", "crash", "event", "rings", "systrace"}) {
            WriteFile(name, command == std::string("log") ? lines : EventRecordBytes("someone"));
            const Result result = Post({command, name, "--json"});
            EXPECT_NE(result.code, 0) << command;
            EXPECT_TRUE(result.Finds("cannot-read")) << command << result.output;
        }
        std::filesystem::remove(name);
    }
    WriteFile("emptied", lines);
    const Result log = Post({"log", "emptied", "--json"});
    EXPECT_EQ(log.code, 1);
    EXPECT_EQ(log.Parsed()["late_findings"]["damage"][0]["code"], "cannot-read");
    for (const char* command : {"report", "timeline"}) {
        const Result result = Post({command, ".", "-o", "out", "--json"});
        EXPECT_EQ(result.code, 1) << command;
        EXPECT_TRUE(result.Finds("cannot-read")) << command << result.output;
    }
}

TEST_F(PostMortem, ReportsWhatCannotBeOpened) {
    WriteFile("device.log", LogLine(1, "<WARN> <One> line"));
    ASSERT_EQ(mkdir("device.log.1", 0700), 0);
    const Result log = Post({"log", "device.log", "--json"});
    EXPECT_EQ(log.code, 1);
    EXPECT_TRUE(log.Finds("cannot-open"));
    // A folder of a folder is not read, but a link that leads nowhere stands for a file that is gone.
    EXPECT_EQ(Post({"report", ".", "-o", "report.html"}).code, 0);
    ASSERT_EQ(symlink("gone", "SysTrace.bin"), 0);
    EXPECT_TRUE(Post({"report", ".", "-o", "report.html", "--json"}).Finds("cannot-open"));
    std::filesystem::remove("device.log");
    const Result nothing = Post({"report", ".", "-o", "report.html", "--json"});
    EXPECT_EQ(nothing.code, 2);
    EXPECT_TRUE(nothing.Finds("cannot-open"));
    for (const char* command : {"systrace", "rings", "log", "crash", "event"}) {
        const Result result = Post({command, "gone", "--json"});
        EXPECT_EQ(result.code, 2) << command;
        EXPECT_TRUE(result.Finds("cannot-open")) << command;
    }
}
