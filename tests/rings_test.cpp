/// The rings: records and directory in the segment, text dumps, and what other processes find.

#include "Diagnostics/Files/DumpFile.h"
#include "Diagnostics/RealTime/RingBufferMgr.h"
#include "platform/Files.h"
#include "tests/support/Sandbox.h"

#include <cerrno>
#include <cstring>
#include <regex>
#include <set>

#include <sys/stat.h>
#include <unistd.h>

#include <Diagnostics/RingBufferApi.h>

namespace Nima::Testing {

using namespace Nima::Common::System::OS::Diagnostics;

namespace {

constexpr std::size_t kSegmentSize = 503808;

TRACE_RING_HANDLE Ring(int index) {
    TRACE_RING_HANDLE ring = nullptr;
    EXPECT_EQ(GetTraceRingBuffer(index, &ring), 0);
    return ring;
}

RingBufferData RecordAt(const std::string& bytes, std::size_t slot) {
    RingBufferData record{};
    std::memcpy(&record, bytes.data() + slot * sizeof(record), sizeof(record));
    return record;
}

/// The first ring's records in the segment's file.
std::string SegmentRecords() {
    return ReadFile("System Ring Buffers").substr(RING_DIRECTORY_SIZE);
}

void Fill(TRACE_RING_HANDLE ring, std::uint32_t count) {
    for (std::uint32_t i = 1; i <= count; ++i) {
        const RingBufferData record{i, 7, {i, 0, 0, 0, 0}};
        ASSERT_EQ(WriteDataToRingBuffer(ring, &record), 0);
    }
}

} // namespace

class Rings : public Sandbox {};

TEST_F(Rings, TheDirectoryIsLaidOutToTheByte) {
    Ring(0);
    const std::string segment = ReadFile("System Ring Buffers");
    EXPECT_EQ(segment.size(), kSegmentSize - 1) << "one byte less than the 503,808 that are mapped";
    const std::uint32_t counts[] = {256, 1024, 512, 256, 512, 512, 512, 2048, 1024, 512, 256,
                                    512, 512,  256, 512, 256, 512, 512, 256,  256,  512, 256,
                                    512, 256,  512, 256, 256, 512, 256, 1024, 256};
    RingDirectory directory{};
    std::memcpy(&directory, segment.data(), sizeof(directory));
    EXPECT_EQ(directory.processId, static_cast<std::uint32_t>(::getpid()));
    EXPECT_EQ(directory.segmentSize, kSegmentSize);
    for (int i = 0; i < RING_COUNT; ++i) {
        EXPECT_EQ(directory.entryCounts[i], counts[i]) << i;
    }
    EXPECT_EQ(segment.find_first_not_of('\0', 132), std::string::npos);
    const wchar_t* const names[] = {
        L"Tracing",        L"RasterCtl",       L"PrintEngine",  L"Assurance",      L"PageLang",
        L"Platform",       L"Timing",          L"EngineLink",   L"DataStore",      L"PeerLink",
        L"Panel",          L"PanelState",      L"JobTrack",     L"AssuranceStrip", L"HwAccel",
        L"ModuleHub",      L"Copier",          L"Facsimile",    L"ScanEngine",     L"GraphicsFilter",
        L"PrintFrontPipe", L"WebSvc",          L"ScanToDest",   L"ImageStore",     L"ManagedAssurance",
        L"ImageBridge",    L"PrintPipeStatus", L"FacsimileCmd", L"PreviewJob",     L"ManagedVm",
        L"Consumables"};
    int id = -1;
    for (int i = 0; i < RING_COUNT; ++i) {
        EXPECT_EQ(GetTraceRingBufferId(names[i], &id), 0);
        EXPECT_EQ(id, i);
    }
    EXPECT_EQ(GetTraceRingBufferId(L"platform", &id), 22);
    EXPECT_EQ(GetTraceRingBufferId(nullptr, &id), 22);
    EXPECT_EQ(GetTraceRingBufferId(L"Platform", nullptr), 22);
    TRACE_RING_HANDLE ring = nullptr;
    EXPECT_EQ(GetTraceRingBuffer(31, &ring), 22);
    EXPECT_EQ(GetTraceRingBuffer(-1, &ring), 22);
    EXPECT_EQ(GetTraceRingBuffer(0, nullptr), 22);
    EXPECT_EQ(ring, nullptr);
}

TEST_F(Rings, TheNewestRecordOverwritesTheOldest) {
    Fill(Ring(0), 257);
    const std::string records = SegmentRecords();
    EXPECT_EQ(RecordAt(records, 0).timestamp, 257);
    for (std::uint32_t slot = 1; slot < 256; ++slot) {
        EXPECT_EQ(RecordAt(records, slot).words[0], slot + 1);
    }
    unsigned char bytes[10000];
    unsigned long copied = 0;
    EXPECT_EQ(GetTraceData(Ring(0), bytes, 101, &copied), 0);
    EXPECT_EQ(copied, 101U);
    EXPECT_EQ(std::memcmp(bytes, records.data(), 101), 0);
    EXPECT_EQ(GetTraceData(Ring(0), bytes, sizeof(bytes), &copied), 0);
    EXPECT_EQ(copied, 8192U);
    EXPECT_EQ(std::memcmp(bytes, records.data(), 8192), 0);
    EXPECT_EQ(GetTraceData(Ring(0), bytes, sizeof(bytes), nullptr), 0);
    EXPECT_EQ(GetTraceData(Ring(7), nullptr, 5, &copied), 0);
    EXPECT_EQ(copied, 65536U);
    EXPECT_EQ(GetTraceData(Ring(7), bytes, 0, nullptr), 0);
    EXPECT_EQ(EmptyRingBuffer(Ring(0)), 0);
    EXPECT_EQ(RecordAt(SegmentRecords(), 255).timestamp, 0);
    Fill(Ring(0), 1);
    EXPECT_EQ(RecordAt(SegmentRecords(), 0).timestamp, 1) << "emptied, it starts at slot 0";
    Fill(Ring(30), 3);
    EXPECT_EQ(EmptyAllRingBuffers(), 0);
    EXPECT_EQ(SegmentRecords().find_first_not_of('\0'), std::string::npos);

    const RingBufferData record{};
    EXPECT_EQ(WriteDataToRingBuffer(nullptr, &record), 22);
    EXPECT_EQ(WriteDataToRingBuffer(Ring(0), nullptr), 22);
    EXPECT_EQ(WriteEventToRingBuffer(nullptr, 0, 0, 0, 0, 0, 0), 22);
    EXPECT_EQ(EmptyRingBuffer(nullptr), 22);
    EXPECT_EQ(GetTraceData(nullptr, bytes, 1, &copied), 22);
    EXPECT_EQ(IsARM(), 0);
}

TEST_F(Rings, EventsCarryTimeAndThread) {
    WriteEventToRingBuffer(Ring(0), 0, 7, 1, 2, 3, 4);
    WriteEventToRingBuffer(Ring(0), 99, static_cast<unsigned long>(-1), 1, 2, 3, 4);
    const RingBufferData own = RecordAt(SegmentRecords(), 0);
    EXPECT_NE(own.timestamp, 0);
    EXPECT_EQ(own.threadId, CurrentThreadId());
    EXPECT_EQ(std::vector<std::uint32_t>(own.words, own.words + 5),
              (std::vector<std::uint32_t>{7, 1, 2, 3, 4}));
    EXPECT_EQ(RecordAt(SegmentRecords(), 1).threadId, 99U);
    EXPECT_EQ(RecordAt(SegmentRecords(), 1).words[0], 0xFFFFFFFFU);
}

TEST_F(Rings, InternalEventsGoToTheLibrarysOwnRing) {
    EXPECT_EQ(RecordInternalDiagnosticEvent(kFaultInDiagnostics, 1, 2, 3, 4), 22)
        << "nobody has built the rings";
    EXPECT_TRUE(Listing(".").empty());
    Ring(0);
    EXPECT_EQ(RecordInternalDiagnosticEvent(kFaultInDiagnostics, 1, 2, 3, 4), 0);
    RingBufferData record{};
    unsigned long copied = 0;
    GetTraceData(Ring(RING_PLATFORM), reinterpret_cast<unsigned char*>(&record), sizeof(record), &copied);
    EXPECT_EQ(record.words[0], 8U);
    EXPECT_EQ(record.words[4], 4U);
}

TEST_F(Rings, TheTextDumpStopsAtTheFirstEmptySlot) {
    const RingBufferData records[] = {
        {-5, 0xAB, {1, 2, 3, 4, 5}}, {0, 1, {1, 1, 1, 1, 1}}, {9, 1, {1, 1, 1, 1, 1}}};
    for (const RingBufferData& record : records) {
        WriteDataToRingBuffer(Ring(3), &record);
    }
    WriteFile("rings.txt", "old");
    DumpRingBuffersUnformatted(L"rings.txt", 1);
    EXPECT_EQ(ReadFile("rings.txt.1"), "old");
    const std::string dump = ReadFile("rings.txt");
    const std::regex head(
        "Current Date/Time: 01[0-9]{2}-[01][0-9]-[0-9]{2} [0-9]{2}:[0-9]{2}:[0-9]{2}\\.[0-9]{3,5}\r\n"
        "Ticks: [1-9][0-9]+\r\nFrequency: 1000000\r\n\r\n");
    const std::size_t start = dump.find("\r\nBEGIN RING BUFFER DUMP\r\n\r\n");
    ASSERT_NE(start, std::string::npos);
    EXPECT_TRUE(std::regex_match(dump.substr(0, start), head)) << dump.substr(0, start);
    const std::string ring3 =
        "######## Ring Buffer Assurance ########\r\n"
        "-000000000000000005 0x000000ab 0x00000001 : 0x00000002 0x00000003 0x00000004 0x00000005\r\n"
        "######## Ring Buffer PageLang ########\r\n";
    EXPECT_EQ(CountOf(dump, ring3), 1U);
    EXPECT_EQ(CountOf(dump, "######## Ring Buffer "), 31U);
    const std::string tail = "######## Ring Buffer Consumables ########\r\n\r\nEND RING BUFFER DUMP\r\n";
    EXPECT_EQ(dump.substr(dump.size() - tail.size()), tail);
    DumpRingBuffersUnformatted(L"no/such/folder", 0);
    DumpRingBuffersUnformatted(nullptr, 0);
}

// The last 2048 records are in the ring, whoever wrote them: the latest of each thread, without a gap.
TEST_F(Rings, ConcurrentWritersShareOneRing) {
    constexpr std::uint32_t kThreads = 8;
    constexpr std::uint32_t kRecords = 20000;
    TRACE_RING_HANDLE ring = Ring(RING_ENGINE_LINK);
    Threads threads = StartTogether(kThreads, [ring](int number) {
        const auto t = static_cast<std::uint32_t>(number);
        for (std::uint32_t i = 0; i < kRecords; ++i) {
            WriteEventToRingBuffer(ring, t + 1, i, t, i, t, i);
        }
    });
    DumpRingBuffersUnformatted(L"meanwhile.txt", 0);
    threads.clear();
    std::string bytes(65536, '\0');
    unsigned long copied = 0;
    GetTraceData(ring, reinterpret_cast<unsigned char*>(bytes.data()), bytes.size(), &copied);
    std::vector<std::set<std::uint32_t>> seen(kThreads + 1);
    std::size_t torn = 0;
    for (std::size_t slot = 0; slot < 2048; ++slot) {
        const RingBufferData record = RecordAt(bytes, slot);
        ASSERT_LE(record.threadId, kThreads);
        torn += record.words[1] + 1 != record.threadId || record.words[0] != record.words[4] ? 1 : 0;
        seen[record.threadId].insert(record.words[0]);
    }
    // A writer that is delayed for a whole round may, rarely, overwrite a newer record.
    std::size_t missing = 0;
    for (const auto& records : seen) {
        missing += records.empty() ? 0 : kRecords - *records.begin() - records.size();
    }
    EXPECT_LE(torn, kThreads);
    EXPECT_LE(missing, kThreads);
}

TEST_F(Rings, ALaterProcessFindsWhatAKilledOneWrote) {
    KilledMidway([](const std::function<void()>& underWay) {
        TRACE_RING_HANDLE ring = Ring(0);
        for (std::uint32_t i = 1;; ++i) {
            WriteEventToRingBuffer(ring, 1, i, i, i, i, i);
            if (i == 100) {
                underWay();
            }
        }
    });
    // Building the rings again keeps the records and starts writing at slot 0.
    EXPECT_NE(RecordAt(SegmentRecords(), 99).timestamp, 0);
    WriteEventToRingBuffer(Ring(0), 2, 0xAAAA, 0, 0, 0, 0);
    EXPECT_EQ(RecordAt(SegmentRecords(), 0).words[0], 0xAAAAU);
    EXPECT_EQ(WordAt(ReadFile("System Ring Buffers"), 0), static_cast<std::uint32_t>(::getpid()));
    const std::string records = SegmentRecords();
    std::size_t torn = 0; // by the end of the process
    for (std::size_t slot = 1; slot < 100; ++slot) {
        const RingBufferData kept = RecordAt(records, slot);
        torn += kept.threadId != 1 || kept.words[0] != kept.words[4] ? 1 : 0;
    }
    EXPECT_LE(torn, 1U);
}

TEST_F(Rings, WithoutASegmentTheRingsLiveInPrivateMemory) {
    ASSERT_EQ(::mkdir("System Ring Buffers", 0700), 0);
    Fill(Ring(0), 3);
    DumpRingBuffersUnformatted(L"rings.txt", 0);
    EXPECT_EQ(CountOf(ReadFile("rings.txt"), "0000000000000000003 0x00000007 0x00000003 : "), 1U);
    EXPECT_EQ(DumpRingBuffersUnformattedEx(L"segment.txt", 0), EISDIR);
    EXPECT_FALSE(Exists("segment.txt"));
}

// The dump of the segment ends at its unmapping step, and has cut the segment by then. This runs in a process
// of its own, on a segment that nobody has mapped.
TEST_F(Rings, TheSegmentDumpEndsAtItsUnmappingStep) {
    InGoodChild([] { Fill(Ring(0), 3); });
    InGoodChild([] {
        errno = 0;
        EXPECT_EQ(DumpRingBuffersUnformattedEx(L"segment.txt", 0), 0);
        struct stat status {};
        ::stat("System Ring Buffers", &status);
        EXPECT_EQ(status.st_size, 4095);
        EXPECT_FALSE(Exists("segment.txt"));
        ::unlink("System Ring Buffers");
        EXPECT_EQ(DumpRingBuffersUnformattedEx(L"segment.txt", 0), 28) << "no rings were ever laid out";
        const std::uint32_t directory[2] = {1, RING_DIRECTORY_SIZE};
        WriteFile("System Ring Buffers",
                  std::string(reinterpret_cast<const char*>(directory), sizeof(directory)));
        EXPECT_EQ(DumpRingBuffersUnformattedEx(L"segment.txt", 0), 28) << "a directory and nothing else";
    });
}

TEST_F(Rings, ADumpFileIsOpenedEmptyWhateverStandsThere) {
    const auto create = [](int backups) {
        void* file = _CreateFileAndRollBackup(L"d", backups);
        EXPECT_TRUE(IsValidHandle(file));
        _write_file_helper(file, "new", 3, nullptr);
        _close_handle_helper(file);
        return ReadFile("d");
    };
    EXPECT_EQ(_CreateFileAndRollBackup(nullptr, 1), InvalidHandle());
    EXPECT_EQ(create(2), "new") << "nothing stands there";
    for (const int backups : {0, -1, 1}) {
        WriteFile("d", "a longer old text");
        WriteFile("d.10", "older");
        EXPECT_EQ(create(backups), "new");
        EXPECT_EQ(Listing("."), (std::vector<std::string>{"d", backups > 0 ? "d.1" : "d.10"}));
    }
    EXPECT_EQ(ReadFile("d.1"), "a longer old text");
    // A backup that cannot be replaced: the file is emptied and reused.
    ::unlink("d.1");
    ASSERT_EQ(::system("mkdir d.1 && touch d.1/x"), 0);
    WriteFile("d", "a longer old text");
    EXPECT_EQ(create(1), "new");
}

} // namespace Nima::Testing
