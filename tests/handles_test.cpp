/// The layer of Win32-style helpers: their own result conventions, which every caller tests exactly.

#include "platform/Handles.h"

#include "Diagnostics/Files/FileRolling.h"
#include "ini/IniFile.h"
#include "platform/Clock.h"
#include "platform/Files.h"
#include "platform/Identifiers.h"
#include "platform/Text.h"
#include "tests/support/Allocations.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TraceDevices.h"

#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>
#include <Diagnostics/TraceApi.h>

namespace Nima::Testing {

using namespace Nima::Common::System::OS::Diagnostics;

class Handles : public Sandbox {};

TEST_F(Handles, FilesKeepTheirOwnResultConventions) {
    EXPECT_EQ(_open_file_helper(L"absent", 3, 4, 0, 0), nullptr);
    EXPECT_EQ(errno, ENOENT);
    ::umask(0);
    void* file = _open_file_helper(L"file", 3, 4, O_CREAT, 0100000);
    ASSERT_NE(file, nullptr);
    struct stat status {};
    ::stat("file", &status);
    EXPECT_EQ(status.st_mode & 0777, 0774U);
    EXPECT_EQ(_wait_handle_helper(file, 5), 0);

    long written = -7;
    EXPECT_EQ(_write_file_helper(file, "0123456789", 10, &written), 1);
    EXPECT_EQ(written, 10);
    EXPECT_EQ(_write_file_helper(file, "x", -1, &written), 0);
    EXPECT_EQ(written, 10);
    EXPECT_EQ(_set_file_pointer_helper(file, 4, SEEK_SET), 4);
    EXPECT_EQ(_set_end_of_file_helper(file), 0);
    EXPECT_EQ(_get_file_size_helper(file), 4);
    // A negative offset is a large positive one: from 4 it leads to 2^32 + 3, of which the low 32 bits
    // remain.
    EXPECT_EQ(_set_file_pointer_helper(file, -1, SEEK_CUR), 3);
    EXPECT_EQ(_set_file_pointer_helper(file, 0, 77), -1);
    EXPECT_EQ(_flush_file_helper(file), 0);
    EXPECT_EQ(_close_handle_helper(file), 0);
    EXPECT_EQ(ReadFile("file"), "0123");

    EXPECT_EQ(_get_file_attributes_helper(L"file"), 1UL);
    EXPECT_EQ(_get_file_attributes_helper(L"."), 1UL);
    EXPECT_EQ(_get_file_attributes_helper(L"absent"), 0UL);
    EXPECT_EQ(_move_file_helper(L"file", L"moved"), 0);
    EXPECT_EQ(_move_file_helper(L"file", L"moved"), 1);
    EXPECT_EQ(_delete_file_helper(L"moved"), 0);
    EXPECT_EQ(_delete_file_helper(L"moved"), 1);
}

TEST_F(Handles, NothingHappensUnderPartOfAName) {
    WriteFile("a", "keep");
    EXPECT_EQ(_delete_file_helper(L"a\x4e2d"), 1);
    EXPECT_EQ(errno, EILSEQ);
    EXPECT_EQ(_open_file_helper(L"a\x4e2d", 3, 4, O_CREAT | O_TRUNC, 0), nullptr);
    EXPECT_EQ(errno, EILSEQ);
    EXPECT_EQ(ReadFile("a"), "keep");
    // 300 characters are cut at 255 bytes.
    const std::wstring longName(300, L'n');
    void* file = _open_file_helper(longName.c_str(), 3, 4, O_CREAT, 0);
    ASSERT_NE(file, nullptr);
    EXPECT_EQ(_close_handle_helper(file), 0);
    EXPECT_TRUE(Exists(std::string(255, 'n')));
}

TEST_F(Handles, AMappingMakesItsFileOneByteShorterThanTheView) {
    void* mapping = _create_file_mapping_helper(L"segment", O_RDWR);
    ASSERT_NE(mapping, nullptr);
    auto* view = static_cast<char*>(_map_view_file_helper(mapping, PROT_READ | PROT_WRITE, 9, 0, 4096));
    ASSERT_NE(view, nullptr);
    std::memcpy(view, "survives", 9);
    EXPECT_EQ(_unmap_view_of_file_helper(view), 0);
    EXPECT_STREQ(view, "survives") << "the view lives until its mapping is closed";
    EXPECT_EQ(_close_handle_helper(mapping), 0);
    const std::string content = ReadFile("segment");
    EXPECT_EQ(content.size(), 4095U);
    EXPECT_EQ(content.substr(0, 9), std::string("survives\0", 9));

    mapping = _create_file_mapping_helper(L"unmapped", O_RDWR);
    EXPECT_EQ(_map_view_file_helper(mapping, PROT_READ, 0, 0, 0), nullptr);
    EXPECT_EQ(_close_handle_helper(mapping), 0);
    EXPECT_EQ(_create_file_mapping_helper(L"no/such/folder", O_RDWR), nullptr);
}

// Each creation with each of its allocations failing in turn.
TEST_F(Handles, ACreationThatRunsOutOfMemoryLeavesNothingOpen) {
    static TRACE_DEVICE_HANDLE log = nullptr;
    static void* handle = nullptr;
    const auto createLog = [] {
        _TraceConfig config =
            LogConfig(L"LogFile with a long name", L"log file with a long name", 1 << 20, 2, false);
        TraceDeviceCreate(&config, &log);
    };
    const auto release = [] {
        TraceDeviceRelease(log);
        log = nullptr;
        if (IsValidHandle(handle)) {
            _close_handle_helper(handle);
        }
        handle = nullptr;
    };
    const std::function<void()> creations[] = {
        [] { handle = _open_file_helper(L"file", 3, 4, O_CREAT, 0); },
        [] { handle = _create_file_mapping_helper(L"segment", O_RDWR); },
        createLog,
        [] {
            TRACE_RING_HANDLE ring = nullptr;
            GetTraceRingBuffer(0, &ring);
        },
        [] { DumpRingBuffersUnformatted(L"rings", 2); },
        [] { ClearSysTrace(); },
        [] { SysTraceConfigure(); },
        [] { DumpSysTrace(L"dump", 2); },
    };
    for (const auto& create : creations) {
        bool failed = true;
        for (int successes = 0; failed; ++successes) {
            const int lowest = ::dup(STDIN_FILENO);
            ::close(lowest);
            g_AllocationsLeft = successes;
            try {
                create();
            } catch (const std::bad_alloc&) {
            }
            failed = g_AllocationsLeft < 0;
            g_AllocationsLeft = -1;
            release();
            const int now = ::dup(STDIN_FILENO);
            ::close(now);
            if (failed) {
                EXPECT_EQ(now, lowest) << "creation " << &create - creations << ", after " << successes;
            }
            EXPECT_EQ(GetTraceDeviceCount(), 0);
        }
    }
}

TEST_F(Handles, HotPathsAllocateNothing) {
    static SysTraceHeader block[129]; // room for 4096 entries
    SetRTTraceConfig(reinterpret_cast<unsigned char*>(block), sizeof(block));
    TRACE_RING_HANDLE ring = nullptr;
    ASSERT_EQ(GetTraceRingBuffer(RING_TIMING, &ring), 0);
    g_AllocationsLeft = 0;
    for (int i = 0; i < 8192; ++i) {
        RTTrace(SYSTRACE_ID(1, 0, 1));
        RTTrace_5(SYSTRACE_ID(1, 1, 1), 1, 2, 3, 4, 5);
        RTTrace(SYSTRACE_ID(1, 3, 1));
        WriteEventToRingBuffer(ring, 0, 1, 2, 3, 4, 5);
    }
    EXPECT_EQ(g_AllocationsLeft, 0) << "nobody has asked for any";
    g_AllocationsLeft = -1;
    EXPECT_EQ(block[0].wrapCount, 17);
}

TEST_F(Handles, WaitsIgnoreTheirTimeOutAndThreadsHaveTheirPriority) {
    void* event = _create_event_helper(false, false, L"name");
    static std::atomic<bool> passed{false};
    void* thread = _create_thread_helper(
        [](void* waitedFor) -> void* {
            _wait_handle_helper(waitedFor, 1);
            passed = true;
            return nullptr;
        },
        event);
    const sched_param real{5};
    const auto* const helper = static_cast<thread_helper*>(static_cast<handle_helper*>(thread));
    EXPECT_EQ(_get_thread_priority_helper(nullptr), 0);
    if (::pthread_setschedparam(helper->id(), SCHED_FIFO, &real) == 0) {
        EXPECT_EQ(_get_thread_priority_helper(thread), 5);
        void* const kernelId = reinterpret_cast<void*>(static_cast<std::uintptr_t>(::getpid()));
        EXPECT_EQ(_get_thread_priority_helper(kernelId), 0) << "the caller's";
    }
    ::usleep(50000);
    EXPECT_FALSE(passed.load());
    static_cast<event_helper*>(static_cast<handle_helper*>(event))->Set();
    EXPECT_EQ(_wait_handle_helper(thread, 0), 0);
    EXPECT_TRUE(passed.load());
    EXPECT_EQ(_wait_handle_helper(event, 0), 0) << "a wait does not clear the flag";
    EXPECT_EQ(_close_handle_helper(event), 0);
    EXPECT_EQ(_close_handle_helper(thread), 1);
    event = _create_event_helper(true, true, nullptr);
    EXPECT_EQ(_wait_handle_helper(event, 0), 0) << "created signalled";
    _close_handle_helper(event);
    void* semaphore = _create_semaphore_helper(0, 1, 1, nullptr);
    EXPECT_EQ(_wait_handle_helper(semaphore, 0), 0);
    static_cast<semaphore_helper*>(static_cast<handle_helper*>(semaphore))->Release();
    EXPECT_EQ(_close_handle_helper(semaphore), 0);
}

TEST_F(Handles, PositionsAndSizesAreTheirLow32Bits) {
    void* file = _open_file_helper(L"large", 3, 4, O_CREAT, 0);
    ASSERT_EQ(::truncate64("large", (5LL << 30) + 7), 0);
    EXPECT_EQ(_get_file_size_helper(file), (1L << 30) + 7);
    EXPECT_EQ(_set_file_pointer_helper(file, 0, SEEK_END), (1L << 30) + 7);
    EXPECT_EQ(_set_end_of_file_helper(file), 0);
    EXPECT_EQ(_set_file_pointer_helper(file, 0, SEEK_END), (1L << 30) + 7);
    struct stat64 status {};
    ::stat64("large", &status);
    EXPECT_EQ(status.st_size, (1L << 30) + 7);
    _close_handle_helper(file);
}

TEST_F(Handles, NumbersAndTexts) {
    EXPECT_EQ(_wtoi64(L"42\x20ac"), 42);
    EXPECT_EQ(_wtoi64(L" -42x"), -42);
    EXPECT_EQ(_wtoi64(L"0000000000000000000123"), 1) << "twenty characters count";
    char narrow[4];
    EXPECT_EQ(_snprintf_s_helper(narrow, sizeof(narrow), 99, "%s", "abcdef"), 6);
    EXPECT_STREQ(narrow, "abc");
}

TEST_F(Handles, IdentifiersAreVersionFour) {
    _GUID identifier{};
    _GUID second{};
    std::time_t before = 0;
    do {
        before = std::time(nullptr);
        EXPECT_EQ(_create_guid_helper(&identifier), 0);
        EXPECT_EQ(_create_guid_helper(&second), 0);
    } while (before != std::time(nullptr));
    EXPECT_EQ(std::memcmp(&identifier, &second, sizeof(second)), 0) << "within one second";
    EXPECT_EQ(identifier.words[3] & 0xF000, 0x4000);
    EXPECT_EQ(identifier.words[4] & 0xC000, 0x8000);
}

TEST_F(Handles, ARollKeepsOneBackup) {
    WriteFile("B", "new");
    WriteFile("B.10", "old");
    RollFileBackupsEx(L"B", 5, true);
    EXPECT_EQ(Listing("."), std::vector<std::string>{"B.10"});
    EXPECT_EQ(ReadFile("B.10"), "new");

    WriteFile("B", "newer");
    RollFileBackups(L"B", 0);
    EXPECT_EQ(Listing(".").size(), 2U);
    RollFileBackups(L"B", -3);
    EXPECT_EQ(Listing("."), std::vector<std::string>{"B"});
    RollFileBackupsEx(L"B", INT32_MIN, true);
    EXPECT_EQ(Listing("."), std::vector<std::string>{"B.10"});
    WriteFile("B", "last");
    RollFileBackupsEx(L"B", 0, true);
    EXPECT_EQ(Listing("."), std::vector<std::string>{"B.10"});

    long attributes = 7;
    EXPECT_TRUE(FileExists(L"absent", attributes));
    EXPECT_EQ(attributes, 0);
    EXPECT_TRUE(FileExists(L"B.10", attributes));
    EXPECT_EQ(attributes, 1);
}

TEST_F(Handles, AWholeBufferIsFlushedOrItsFailureReported) {
    void* file = _open_file_helper(L"out", 3, 6, O_CREAT, 0);
    unsigned char bytes[] = "0123456789";
    EXPECT_EQ(FlushBufferToFile(file, bytes, 0), 1);
    EXPECT_EQ(FlushBufferToFile(file, bytes, 10), 1);
    _close_handle_helper(file);
    EXPECT_EQ(ReadFile("out"), "0123456789");
    file = _open_file_helper(L"out", 0, 6, 0, 0);
    EXPECT_EQ(FlushBufferToFile(file, bytes, 10), 0) << "opened for reading only";
    _close_handle_helper(file);

    // After a short write the library continues, and here it meets the full disk.
    const TinyDisk disk("tiny", 16);
    if (disk.mounted()) {
        std::vector<unsigned char> many(40000, 'x');
        file = _open_file_helper(L"tiny/out", 3, 6, O_CREAT, 0);
        EXPECT_EQ(FlushBufferToFile(file, many.data(), 40000), 0);
        _close_handle_helper(file);
        EXPECT_EQ(ReadFile("tiny/out").size(), 16384U);
    }
}

TEST_F(Handles, AnIniFileLivesInMemoryOnly) {
    CIniFile ini;
    ini.WriteValue(L"before", L"k", L"v");
    EXPECT_TRUE(ini.Open(L"no such file"));
    EXPECT_TRUE(ini.CopySection(L"before").empty()) << "opening empties the table";
    ini.WriteValue(L"s", L"k", L"42x");
    EXPECT_EQ(ini.ReadValue(L"s", L"k", 7U), 42U);
    EXPECT_EQ(ini.ReadValue(L"S", L"k", 7U), 7U);
    ini.WriteValue(L"s", L"k", L"-1");
    EXPECT_EQ(ini.ReadValue(L"s", L"k", 7U), 0xFFFFFFFFU);
    ini.WriteValue(L"s", L"k", L"");
    EXPECT_EQ(ini.ReadValue(L"s", L"k", 7U), 7U);
    EXPECT_EQ(ini.ReadValue(L"s", L"absent", std::wstring(L"default")), L"");
    ini.DeleteSection(L"s");
    EXPECT_EQ(ini.ReadValue(L"s", L"k", 7U), 7U);
    EXPECT_TRUE(Listing(".").empty());
}

} // namespace Nima::Testing
