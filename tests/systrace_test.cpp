/// The SysTrace buffer: its block byte for byte, its filter and capture states, its dumps, and its life
/// across processes.

#include "Diagnostics/RealTime/RealTimeTrace.h"
#include "Diagnostics/RealTime/TraceMemory.h"
#include "platform/Files.h"
#include "tests/support/Allocations.h"
#include "tests/support/Sandbox.h"

#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>
#include <numeric>
#include <set>
#include <thread>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>

namespace Nima::Testing {

using namespace Nima::Common::System::OS::Diagnostics;

namespace {

constexpr std::size_t kEntries = 4096;

/// A block of the smallest size that a host uses, live or not.
struct Block {
    alignas(SysTraceHeader) unsigned char bytes[33024] = {};

    SysTraceHeader& header() {
        void* const start = bytes;
        return *static_cast<SysTraceHeader*>(start);
    }
    SysTraceEntry& entry(std::size_t slot) {
        void* const start = bytes + sizeof(SysTraceHeader);
        return static_cast<SysTraceEntry*>(start)[slot];
    }
    void MakeLive() { SetRTTraceConfig(bytes, sizeof(bytes)); }
};

Block& LiveBlock() {
    static Block block;
    block.MakeLive();
    return block;
}

std::uint32_t ThisThread() {
    return CurrentThreadId();
}

constexpr const char* kSettingUp = "SysTrace (Drel) not setup...setting up\r\n";
constexpr const char* kNoRegisters = "Failed to get TARN registers.\r\n";

struct Sink {
    std::string taken;
    std::size_t calls = 0;
    std::size_t refuseAt = 0;
    int take = 0;  ///< 0: all; negative: nothing
    int claim = 0; ///< what is reported instead, unless 0
    int largest = 0;
};

int Take(const char* data, int length, int* written, void* context) {
    auto& sink = *static_cast<Sink*>(context);
    if (++sink.calls == sink.refuseAt) {
        errno = EIO;
        return 0;
    }
    *written = sink.take < 0 ? 0 : sink.take > 0 ? std::min(sink.take, length) : length;
    sink.taken.append(data, static_cast<std::size_t>(*written));
    sink.largest = std::max(sink.largest, length);
    if (sink.claim != 0) {
        *written = sink.claim;
    }
    return 1;
}

} // namespace

class SysTrace : public Sandbox {};

TEST_F(SysTrace, NothingIsTracedOrMadeBeforeConfiguration) {
    RTTrace_5(1, 1, 2, 3, 4, 5);
    SysTraceSetComponentLevel(1, 1);
    SysTraceSetAllLevel(1, true);
    EXPECT_TRUE(Listing(".").empty());
}

TEST_F(SysTrace, AFreshBlockIsFormattedToTheByte) {
    Block block;
    std::memset(block.bytes, 0xAA, sizeof(SysTraceHeader)); // leftovers with the formatted flag clear
    EXPECT_EQ(CapturedOutput([&] { block.MakeLive(); }), std::string(kSettingUp) + kNoRegisters);
    std::string expected(sizeof(block.bytes), '\0');
    const auto put = [&expected](std::size_t offset, std::uint32_t word) {
        std::memcpy(&expected[offset], &word, 4);
    };
    std::memcpy(expected.data(), "strc", 4);
    put(4, 256);
    put(8, 0xFFFFFFFF);
    put(12, 33024);
    put(16, 2);
    put(20, kEntries);
    put(24, 0xFFFFFFFF);
    put(28, 3);
    put(32, 1000000);
    put(36, 0xFFFFFFFF);
    put(40, 1);
    std::memset(&expected[44], 0xFF, 32);
    put(172, kEntries - 1);
    EXPECT_EQ(std::string(reinterpret_cast<char*>(block.bytes), sizeof(block.bytes)), expected);
    EXPECT_EQ(CapturedOutput([&] { block.MakeLive(); }), kNoRegisters) << "adopted the second time";
    static Block kept; // the live buffer must outlive this test's block
    kept.MakeLive();
}

TEST_F(SysTrace, ARecordIsItsIdArgumentsAndThread) {
    Block& block = LiveBlock();
    const unsigned long id = SYSTRACE_ID(12, 1, 345) | SYSTRACE_CONTINUATION;
    RTTrace_3(id, 0x11111111, 0x22222222, static_cast<unsigned long>(-1));
    RTTrace(SYSTRACE_ID(12, 2, 1));
    RTTrace(SYSTRACE_ID(127, 0, 0x3FFFFF));
    EXPECT_EQ(block.header().writeIndex, 6U);
    EXPECT_EQ(block.header().wrapCount, 0);
    const std::uint32_t expectedIds[] = {0x23000159, 0xA3000159, 0xA3000159, 0xA3000159,
                                         0xA3000159, 0x1FFFFFFF, 0x9FFFFFFF};
    for (std::size_t i = 0; i < 7; ++i) {
        EXPECT_EQ(block.entry(i).id, expectedIds[i]) << i;
    }
    EXPECT_EQ(block.entry(1).value, 0x11111111U);
    EXPECT_EQ(block.entry(2).value, 0x22222222U);
    EXPECT_EQ(block.entry(3).value, 0xFFFFFFFFU);
    EXPECT_EQ(block.entry(4).value, ThisThread());
    EXPECT_EQ(block.entry(6).value, ThisThread());

    // The counter falls when a second begins.
    std::uint32_t before = 0;
    std::uint32_t after = 0;
    do {
        ClearSysTrace();
        before = ReadQPC32();
        RTTrace(id);
        after = ReadQPC32();
    } while (after < before);
    EXPECT_GE(block.entry(0).value, before);
    EXPECT_LE(block.entry(0).value, after);
}

TEST_F(SysTrace, TheFilterIsPerComponentAndLevel) {
    Block& block = LiveBlock();
    SysTraceHeader& header = block.header();
    SysTraceSetComponentLevel(5, 2);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(header.liveFilter[8], 0x04000000U);
    RTTrace(SYSTRACE_ID(5, 2, 1));
    RTTrace(SYSTRACE_ID(4, 2, 1));
    RTTrace(SYSTRACE_ID(5, 3, 1));
    EXPECT_EQ(header.writeIndex, 1U);
    SysTraceSetAllLevel(0, false);
    RTTrace(SYSTRACE_ID(5, 0, 1));
    EXPECT_EQ(header.writeIndex, 1U);
    SysTraceSetAllLevel(0, true);
    SysTraceSetAllLevel(4, true);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(header.savedFilter[0] & header.savedFilter[3], 0xFFFFFFFFU);
    EXPECT_EQ(header.savedFilter[4], 0U);
    SysTraceSetComponentLevel(255, 4);
    EXPECT_EQ(header.savedFilter[7], 1U) << "components beyond 127 reach into the next level";
    const SysTraceHeader unchanged = header;
    SysTraceSetComponentLevel(1, 5);
    EXPECT_EQ(errno, EINVAL);
    errno = 0;
    SysTraceSetAllLevel(5, true);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_EQ(std::memcmp(&unchanged, &header, sizeof(header)), 0);
}

TEST_F(SysTrace, CaptureSwapsExactlyItsStates) {
    Block block;
    SysTraceBuffer buffer(block.bytes, sizeof(block.bytes), false);
    SysTraceHeader& header = block.header();
    const SysTraceHeader fresh = header;

    ASSERT_TRUE(buffer.BeginTraceCapture());
    EXPECT_EQ(std::accumulate(header.liveFilter, header.liveFilter + 16, 0ULL), 0U);
    EXPECT_EQ(header.savedFilter[0], 0xFFFFFFFFU);
    EXPECT_EQ(header.savedState, 1U);
    EXPECT_TRUE(buffer.EndTraceCapture());
    EXPECT_EQ(std::memcmp(header.liveFilter, fresh.liveFilter, sizeof(fresh.liveFilter)), 0);
    EXPECT_EQ(header.state, 1U);

    struct Case {
        std::uint32_t state;
        bool begins;
        std::uint32_t during;
        std::uint32_t after;
    };
    // The saved state stays 1 from above if a capture does not store one.
    for (const Case& c : {Case{2, true, 2, 2}, Case{3, true, 3, 3}, Case{4, false, 1, 3},
                          Case{0, false, 0, 3}, Case{77, false, 77, 3}}) {
        header.state = c.state;
        errno = 0;
        EXPECT_EQ(buffer.BeginTraceCapture(), c.begins) << c.state;
        EXPECT_EQ(errno, c.begins ? 0 : EOPNOTSUPP);
        EXPECT_EQ(header.state, c.during) << c.state;
        EXPECT_EQ(header.liveFilter[0], 0xFFFFFFFFU) << c.state;
        EXPECT_TRUE(buffer.EndTraceCapture());
        EXPECT_EQ(header.state, c.after) << c.state;
    }

    header.state = 1;
    EXPECT_FALSE(buffer.ResetTrigger());
    EXPECT_EQ(errno, EOPNOTSUPP);
    EXPECT_EQ(header.state, 2U);
    buffer.Disable();
    EXPECT_EQ(header.liveFilter[0], 0U);
    header.savedState = 3;
    EXPECT_TRUE(buffer.ResetTrigger());
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(header.savedState, 0U);
    EXPECT_EQ(header.state, 1U);
    EXPECT_EQ(header.liveFilter[0], 0xFFFFFFFFU);
    EXPECT_EQ(header.savedFilter[0], 0U);

    header.flags = 1;
    SysTraceBuffer withoutThreads(block.bytes, sizeof(block.bytes), false);
    header.writeIndex = 0xFFFFFFFF;
    withoutThreads.Record(1, 2);
    EXPECT_EQ(header.writeIndex, 1U) << "no thread entry";

    header.writeIndex = 5;
    header.state = 0;
    buffer.Clear();
    EXPECT_EQ(header.writeIndex, 0xFFFFFFFFU) << "whether or not capture could begin";
    EXPECT_EQ(header.wrapCount, -1);
}

TEST_F(SysTrace, NoHeaderLeadsAWriterOrADumpOutOfTheBlock) {
    struct {
        Block block;
        unsigned char fence[4096] = {};
    } guarded;
    SysTraceBuffer first(guarded.block.bytes, 512, false);
    SysTraceHeader& header = guarded.block.header();
    EXPECT_EQ(header.entryCount, 32U);
    // Adopted with another size: the header's count, the constructor's mask.
    SysTraceBuffer adopted(guarded.block.bytes, sizeof(guarded.block.bytes), false);
    header.writeIndex = 40;
    adopted.Record(1);
    EXPECT_EQ(guarded.block.entry(41).id, 1U);

    header.entryCount = 0x7FFFFFFF;
    header.bufferSize = 0xFFFFFFF0;
    header.writeIndex = 0x7FFFFFF0;
    std::memcpy(header.magic, "what", 4);
    SysTraceBuffer absurd(guarded.block.bytes, sizeof(guarded.block.bytes), false);
    for (const std::int32_t wraps : {0, 5}) {
        header.wrapCount = wraps;
        Sink sink;
        absurd.Dump(Take, &sink);
        EXPECT_LE(sink.taken.size(), 256 + sizeof(guarded.block.bytes));
    }
    for (int i = 0; i < 5000; ++i) {
        absurd.Record(2, 3, 4);
    }
    EXPECT_EQ(std::count(guarded.fence, guarded.fence + sizeof(guarded.fence), 0), 4096);

    for (const long size : {0L, 511L, -1L}) {
        errno = 0;
        SetRTTraceConfig(guarded.block.bytes, size);
        EXPECT_EQ(errno, EINVAL) << size;
    }
    SetRTTraceConfig(nullptr, 33024);
    SetRTTraceConfig(guarded.block.bytes + 1, 33000);
    EXPECT_EQ(g_RTTrace.load(), nullptr);
}

TEST_F(SysTrace, DumpsReportAsTheyAlwaysHave) {
    Block& block = LiveBlock();
    RTTrace_1(SYSTRACE_ID(1, 0, 7), 8);
    EXPECT_EQ(DumpSysTrace(L"dump", 1), 19);
    // The dump's own first event is in it, as two entries.
    const std::string dump = ReadFile("dump");
    ASSERT_EQ(dump.size(), 256U + 256 + 5 * 8);
    EXPECT_EQ(WordAt(dump, 0), 256U);
    EXPECT_EQ(WordAt(dump, 4), 1U);
    EXPECT_EQ(WordAt(dump, 8), 2U);
    EXPECT_EQ(WordAt(dump, 12), 33024U);
    EXPECT_EQ(WordAt(dump, 16), 0x08675309U);
    EXPECT_EQ(dump.substr(20, 236), std::string(236, '\0'));
    EXPECT_EQ(dump.substr(256, 4), "strc");
    EXPECT_EQ(WordAt(dump, 512), 0x00400007U);
    EXPECT_EQ(WordAt(dump, 512 + 3 * 8), 0x1FC07532U);
    EXPECT_EQ(block.header().liveFilter[0], 0xFFFFFFFFU) << "tracing continues";
    EXPECT_EQ(block.entry(5).id, 0x1FC07534U);

    // Wrapped: everything. The previous file is kept as .1; .10 belongs to the rolling.
    for (std::size_t i = 0; i < kEntries; ++i) {
        RTTrace(SYSTRACE_ID(1, 0, 7));
    }
    WriteFile("dump.10", "old");
    EXPECT_EQ(DumpSysTrace(L"dump", 3), 19);
    EXPECT_EQ(ReadFile("dump").size(), 256U + 33024);
    EXPECT_EQ(Listing("."), (std::vector<std::string>{"dump", "dump.1"}));
    EXPECT_EQ(ReadFile("dump.1"), dump);
    EXPECT_EQ(DumpSysTrace(L"dump", 0), 19);
    EXPECT_EQ(DumpSysTrace(L"no/such/folder", 0), 19);
    EXPECT_EQ(DumpSysTrace(nullptr, 0), 19);
    EXPECT_EQ(block.header().liveFilter[0], 0xFFFFFFFFU);
    EXPECT_EQ(ClearSysTrace(), 19);
    EXPECT_EQ(block.header().writeIndex, 0xFFFFFFFFU);

    // Nothing was traced and the events are filtered out: the wrap count is still -1, so the whole block is
    // dumped.
    SysTraceSetAllLevel(0, false);
    EXPECT_EQ(DumpSysTrace(L"dump", 0), 19);
    EXPECT_EQ(ReadFile("dump").size(), 256U + 33024);
}

TEST_F(SysTrace, ADumpThatCannotBeginOrWriteSaysSo) {
    Block& block = LiveBlock();
    block.header().state = 0;
    EXPECT_EQ(CapturedOutput([] { EXPECT_EQ(DumpSysTrace(L"dump", 0), 19); }),
              "ERROR!! SysTrace::Dump() BeginTraceCapture() failed! \r\n");
    EXPECT_FALSE(Exists("dump"));
    Sink sink;
    EXPECT_EQ(CapturedOutput([&] { DumpSysTraceEx(Take, &sink); }),
              "ERROR!! SysTrace::Dump() BeginTraceCapture() failed! \r\n");
    EXPECT_EQ(sink.calls, 0U);
    CapturedOutput([] { DumpSysTraceEx(nullptr, nullptr); });
    std::vector<std::uint32_t> events;
    for (std::size_t slot = 0; slot <= block.header().writeIndex; slot += 2) {
        events.push_back(block.entry(slot).id & SYSTRACE_EVENT_MASK);
    }
    EXPECT_EQ(events, (std::vector<std::uint32_t>{0x7532, 0x7533, 0x7534, 0x7536, 0x7537, 0x7538, 0x7535}));
    block.header().state = 1;

    const TinyDisk disk("tiny", 16);
    if (!disk.mounted()) {
        GTEST_SKIP() << "cannot mount a file system here";
    }
    SysTraceSetAllLevel(0, false);
    ClearSysTrace();
    // The path is wide and the message's format reads it as narrow: only its first character remains.
    EXPECT_EQ(CapturedOutput([] { DumpSysTrace(L"tiny/dump", 0); }),
              "ERROR!!  Failed to write SysTrace to t, err=28.\r\n");
    EXPECT_EQ(ReadFile("tiny/dump").substr(256, 4), "strc");
    EXPECT_EQ(block.header().state, 1U);
}

TEST_F(SysTrace, ACallbackMayRefuseOrTakeLess) {
    Block& block = LiveBlock();
    SysTraceSetAllLevel(0, false);
    Sink whole;
    EXPECT_EQ(DumpSysTraceEx(Take, &whole), 19);
    EXPECT_EQ(whole.calls, 2U);
    Sink partial;
    partial.take = 1000;
    EXPECT_EQ(DumpSysTraceEx(Take, &partial), 19);
    EXPECT_EQ(partial.calls, 1U + 34);
    EXPECT_EQ(partial.taken, whole.taken);
    const auto output = [](Sink sink) { return CapturedOutput([&] { DumpSysTraceEx(Take, &sink); }); };
    EXPECT_EQ(output({{}, 0, 1, 0, 0, 0}), "") << "a refused file header just ends it";
    EXPECT_EQ(output({{}, 0, 2, 0, 0, 0}), "ERROR!!  Failed to write SysTrace to callback, err=5.\r\n");
    Sink greedy;
    greedy.claim = 1 << 30;
    EXPECT_EQ(DumpSysTraceEx(Take, &greedy), 19);
    EXPECT_EQ(greedy.calls, 2U) << "more than was offered is all that was offered";
    EXPECT_EQ(output({{}, 0, 0, -1, 0, 0}),
              "ERROR!!  Failed to write SysTrace to callback, zero bytes written.\r\n");
    EXPECT_EQ(CapturedOutput([] { EXPECT_EQ(DumpSysTraceEx(nullptr, nullptr), 19); }),
              "ERROR!!  SysTrace::Dump() callback is NULL\r\n");
    const auto throwing = [](const char*, int, int*, void*) -> int { throw 1; };
    EXPECT_EQ(DumpSysTraceEx(throwing, nullptr), ENOMEM);
    EXPECT_EQ(block.header().liveFilter[4], 0xFFFFFFFFU) << "tracing continues after each";
}

// Whatever the interleaving, each record can be put together again from continuation, id and thread.
TEST_F(SysTrace, ConcurrentRecordsAreAllThere) {
    constexpr std::uint32_t kThreads = 8;
    constexpr std::uint32_t kRecords = 5000;
    static std::vector<std::uint32_t> memory(2 * 262144 + 64);
    void* const start = memory.data();
    SetRTTraceConfig(static_cast<unsigned char*>(start), static_cast<long>(memory.size() * 4));
    StartTogether(kThreads, [](int t) {
        for (std::uint32_t i = 0; i < kRecords; ++i) {
            RTTrace_2(SYSTRACE_ID(static_cast<std::uint32_t>(t), 0, i), i, ~i);
        }
    });
    const auto* header = static_cast<const SysTraceHeader*>(start);
    ASSERT_EQ(header->writeIndex, kThreads * kRecords * 4 - 1);
    void* const behind = memory.data() + sizeof(SysTraceHeader) / 4;
    const auto* entries = static_cast<const SysTraceEntry*>(behind);
    std::map<std::uint32_t, std::vector<std::uint32_t>> records;
    for (std::size_t slot = 0; slot <= header->writeIndex; ++slot) {
        records[entries[slot].id & ~SYSTRACE_CONTINUATION].push_back(entries[slot].value);
    }
    EXPECT_EQ(records.size(), kThreads * kRecords);
    std::size_t whole = 0;
    for (const auto& [id, values] : records) {
        const std::uint32_t i = id & SYSTRACE_EVENT_MASK;
        whole += values.size() == 4 && values[1] == i && values[2] == ~i ? 1 : 0;
    }
    EXPECT_EQ(whole, kThreads * kRecords);
}

TEST_F(SysTrace, AnotherProcessAdoptsTheSegment) {
    InGoodChild([] {
        CapturedOutput([] { EXPECT_EQ(SysTraceConfigure(), 1); });
        SysTraceSetComponentLevel(3, 3);
        RTTrace_1(SYSTRACE_ID(3, 3, 33), 44);
    });
    struct stat status {};
    ASSERT_EQ(::stat("SysTrace Buffer", &status), 0);
    EXPECT_EQ(status.st_size, SYSTRACE_SEGMENT_SIZE - 1);
    // Without a live buffer the segment itself is dumped.
    EXPECT_EQ(CapturedOutput([] { EXPECT_EQ(DumpSysTrace(L"dump", 0), 0); }), "");
    const std::string dump = ReadFile("dump");
    ASSERT_EQ(dump.size(), 512U + 24);
    EXPECT_EQ(WordAt(dump, 12), 8388864U);
    EXPECT_EQ(WordAt(dump, 512), 0x60C00021U);
    EXPECT_EQ(WordAt(dump, 524), 44U);
    unsigned char* memory = nullptr;
    EXPECT_EQ(CapturedOutput([&] { GetRTTraceBuffer(&memory); }), kNoRegisters);
    ASSERT_NE(memory, nullptr);
    RTTrace(SYSTRACE_ID(3, 3, 34)); // the first process's filter is in effect
    EXPECT_EQ(DumpSysTrace(L"dump", 0), 19);
    EXPECT_EQ(WordAt(ReadFile("dump"), 512 + 24), 0x60C00022U);
    EXPECT_NE(ConfigureSysTrace(), nullptr);
}

TEST_F(SysTrace, TheWholeSegmentIsDumpedInBoundedPieces) {
    CapturedOutput([] { SysTraceConfigure(); });
    unsigned char* memory = nullptr;
    GetRTTraceBuffer(&memory);
    void* const start = memory;
    auto* const header = static_cast<SysTraceHeader*>(start);
    header->writeIndex = header->entryCount - 6; // as if so much had been traced
    header->wrapCount = 0;
    for (std::uint32_t i = 0; i < 6; ++i) {
        RTTrace(i);
    }
    EXPECT_EQ(header->wrapCount, 1);
    const auto openFiles = [] { return Listing("/proc/self/fd").size(); };
    const std::size_t before = openFiles();
    SysTraceSetAllLevel(0, false);
    Sink sink;
    EXPECT_EQ(DumpSysTraceEx(Take, &sink), 19);
    EXPECT_EQ(sink.largest, 1048576);
    EXPECT_EQ(sink.taken.size(), 256U + 8388864);
    EXPECT_EQ(DumpSysTrace(L"dump", 0), 19);
    EXPECT_EQ(ReadFile("dump"), sink.taken);
    EXPECT_EQ(openFiles(), before);
    delete g_RTTrace.exchange(nullptr);
    ReleaseSysTrace();
    EXPECT_EQ(openFiles(), before - 1);
}

TEST_F(SysTrace, AKilledProcessLeavesItsRecords) {
    KilledMidway([](const std::function<void()>& underWay) {
        ::freopen("/dev/null", "w", stdout);
        SysTraceConfigure();
        for (std::uint32_t i = 0; i < 300000;
             ++i) { // With more, it would wrap before a busy machine has killed it.
            RTTrace_1(SYSTRACE_ID(9, 0, 1), i);
            if (i == 1000) {
                underWay();
            }
        }
        ::pause();
    });
    EXPECT_EQ(DumpSysTrace(L"dump", 0), 0);
    const std::string dump = ReadFile("dump");
    ASSERT_GE(dump.size(), 512U + 1000 * 24);
    for (std::size_t i = 0; i < 1000; ++i) {
        ASSERT_EQ(WordAt(dump, 512 + i * 24), 0x02400001U);
        ASSERT_EQ(WordAt(dump, 512 + i * 24 + 12), i);
    }
}

namespace {

/// A word that forked processes share.
class SharedCount {
  public:
    SharedCount()
        : count_(static_cast<std::atomic<int>*>(
              ::mmap(nullptr, sizeof(*count_), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))) {}
    SharedCount(const SharedCount&) = delete;
    SharedCount& operator=(const SharedCount&) = delete;
    ~SharedCount() { ::munmap(count_, sizeof(*count_)); }
    std::atomic<int>& operator*() const { return *count_; }

  private:
    std::atomic<int>* count_;
};

} // namespace

// Processes that start at once on a block that nobody has formatted; in every other round they are children
// of one that has mapped it. One of them formats the block, and what the first has traced by then stays.
TEST_F(SysTrace, OfProcessesThatStartAtOnceOneFormats) {
    constexpr int kProcesses = 3;
    constexpr int kRecords = 50;
#ifdef __arm__
    constexpr int kRounds = 8; // mapping a block is slow under the emulator
#else
    constexpr int kRounds = 30;
#endif
    const SharedCount waiting;
    for (int round = 0; round < kRounds; ++round) {
        *waiting = kProcesses;
        if (round % 2 == 1) {
            ConfigureSysTrace();
        }
        std::vector<pid_t> processes;
        for (int p = 0; p < kProcesses; ++p) {
            const pid_t process = ::fork();
            if (process == 0) {
                ::freopen("out", "a", stdout);
                --*waiting;
                while (*waiting > 0) {
                    std::this_thread::yield();
                }
                SysTraceConfigure();
                for (int i = 0; i < kRecords; ++i) {
                    RTTrace(SYSTRACE_ID(9, 0, 1));
                }
                std::fflush(stdout);
                ::_exit(0);
            }
            processes.push_back(process);
        }
        for (const pid_t process : processes) {
            int status = -1;
            ::waitpid(process, &status, 0);
            ASSERT_EQ(status, 0);
        }
        std::uint32_t head[3] = {}; // of a large file
        std::ifstream("SysTrace Buffer", std::ios::binary).read(reinterpret_cast<char*>(head), sizeof(head));
        ASSERT_EQ(head[2], 2U * kProcesses * kRecords - 1) << "round " << round;
        ASSERT_EQ(CountOf(ReadFile("out"), "not setup...setting up"), 1U) << "round " << round;
        ReleaseSysTrace();
        ::unlink("SysTrace Buffer");
        ::unlink("out");
    }
}

// The process that is about to format may have been stopped.
TEST_F(SysTrace, AProcessThatDoesNotGetOnHoldsNobodyUp) {
    const SharedCount locked;
    const pid_t holder = ::fork();
    if (holder == 0) {
        void* const file = _create_file_mapping_helper(L"SysTrace Buffer", O_RDWR);
        const ProcessLock lock(file, 0);
        ++*locked;
        ::pause();
    }
    WaitUntil([&] { return *locked > 0; });
    InGoodChild([] {
        ::alarm(20);
        ::freopen("/dev/null", "w", stdout);
        ASSERT_EQ(ClearSysTrace(), 0);
        ASSERT_EQ(SysTraceConfigure(), 1);
        RTTrace(SYSTRACE_ID(9, 0, 1));
    });
    ::kill(holder, SIGKILL);
    ::waitpid(holder, nullptr, 0);
    EXPECT_EQ(WordAt(ReadFile("SysTrace Buffer"), 8), 1U);
}

TEST_F(SysTrace, WithoutASegmentTheCallsSayTwelve) {
    ASSERT_EQ(::mkdir("SysTrace Buffer", 0700), 0);
    EXPECT_EQ(SysTraceConfigure(), 0);
    unsigned char untouched = 0;
    unsigned char* memory = &untouched;
    GetRTTraceBuffer(&memory);
    EXPECT_EQ(memory, &untouched);
    EXPECT_EQ(DumpSysTrace(L"dump", 0), 12);
    EXPECT_EQ(DumpSysTraceEx(nullptr, nullptr), 12);
    EXPECT_EQ(ClearSysTrace(), 12);
    EXPECT_EQ(ConfigureSysTrace(), nullptr);
    ReleaseSysTrace();
    ASSERT_EQ(::rmdir("SysTrace Buffer"), 0);
    {
        const TinyDisk disk("tiny", 100);
        if (disk.mounted()) {
            ASSERT_EQ(::chdir("tiny"), 0);
            const std::size_t before = Listing("/proc/self/fd").size();
            EXPECT_EQ(ClearSysTrace(), 12) << "no room for the segment";
            EXPECT_EQ(Listing("/proc/self/fd").size(), before);
            ASSERT_EQ(::chdir(".."), 0);
        }
    }
    // The next call tries again; a truncated or zeroed segment is simply formatted.
    WriteFile("SysTrace Buffer", std::string(100, '\0'));
    EXPECT_EQ(CapturedOutput([] { EXPECT_EQ(ClearSysTrace(), 0); }), kSettingUp);
    ReleaseSysTrace();
    EXPECT_EQ(CapturedOutput([] { EXPECT_EQ(ClearSysTrace(), 0); }), "")
        << "mapped again, the contents are still there";
}

TEST_F(SysTrace, ThreadsConfigureOneBuffer) {
    constexpr std::size_t kThreads = 8;
    std::array<void*, kThreads> segments{};
    std::array<unsigned char*, kThreads> blocks{};
    StartTogether(kThreads, [&](int t) {
        const auto own = static_cast<std::size_t>(t);
        segments[own] = ConfigureSysTrace();
        GetRTTraceBuffer(&blocks[own]);
        RTTrace(SYSTRACE_ID(1, 0, 1));
    });
    EXPECT_EQ(std::set<void*>(segments.begin(), segments.end()).size(), 1U);
    EXPECT_EQ(std::set<unsigned char*>(blocks.begin(), blocks.end()).size(), 1U);
    void* const start = blocks[0];
    EXPECT_EQ(static_cast<SysTraceHeader*>(start)->writeIndex, 15U);
}

} // namespace Nima::Testing
