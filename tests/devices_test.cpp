/// What the devices leave in files and on standard output, byte for byte.

#include "Diagnostics/Devices/Console.h"
#include "Diagnostics/MessageFormat.h"
#include "Diagnostics/TraceFormat.h"
#include "platform/Handles.h"
#include "tests/support/Sandbox.h"
#include "tests/support/TraceDevices.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <climits>
#include <cstdarg>
#include <cstdio>
#include <ctime>
#include <map>
#include <regex>
#include <thread>

#include <pthread.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <Diagnostics/MemoryQueue.h>
#include <Diagnostics/RollingLogFile.h>
#include <Diagnostics/TraceApi.h>

namespace {

std::size_t g_Writes = 0;
/// How many bytes each of the next calls of `write` takes at most; -1 makes a call fail. Never destroyed: the
/// library writes at the end of the process.
std::vector<long>& g_WritesTake = *new std::vector<long>;

std::atomic<bool> g_HoldUpAtClock{false};
std::atomic<unsigned> g_ClockReadings{0};

} // namespace

extern "C" ssize_t write(int fd, const void* buf, std::size_t n) {
    ++g_Writes;
    if (!g_WritesTake.empty()) {
        const long take = g_WritesTake.front();
        g_WritesTake.erase(g_WritesTake.begin());
        if (take < 0) {
            errno = EIO;
            return -1;
        }
        n = std::min(n, static_cast<std::size_t>(take));
    }
    return ::syscall(SYS_write, fd, buf, n);
}

extern "C" int clock_gettime(clockid_t clock_id, timespec* tp) noexcept {
#ifdef SYS_clock_gettime64
    const long result = ::syscall(SYS_clock_gettime64, clock_id, tp);
#else
    const long result = ::syscall(SYS_clock_gettime, clock_id, tp);
#endif
    if (g_HoldUpAtClock && ++g_ClockReadings % 200 == 0) {
        ::usleep(100);
    }
    return static_cast<int>(result);
}

namespace Nima::Testing {

using namespace Nima::Common::System::OS::Diagnostics;

namespace {

unsigned char* Bytes(const char* text) {
    return reinterpret_cast<unsigned char*>(const_cast<char*>(text));
}

void Write(ITraceDevice& device, const std::string& text) {
    device.WriteData(Bytes(text.c_str()), static_cast<int>(text.size()));
}

std::string ThreadPart() {
    char text[32];
    std::snprintf(text, sizeof(text), "<0x%8.8x:000> ", CurrentThreadId());
    return text;
}

/// A regular expression for the counter form of the calling thread's header.
std::string Header() {
    return "-?[0-9]+ " + ThreadPart();
}

const char* const kCalibration =
    "<CAL> <Trace> Calibration freq=1000000, now=[0-9]{4}[0-9]{2}[0-9]{2}[0-9]{2}[0-9]{2}[0-9]{2}\\."
    "[0-9]{3,5}, type=qpc\r\n";

void ExpectMatch(const std::string& text, const std::string& pattern) {
    EXPECT_TRUE(std::regex_match(text, std::regex(pattern)))
        << "[" << text << "] against [" << pattern << "]";
}

const char* const kRollMessage = "DREL Trace!! Failed to roll trace file, seeking to beginning of file!\r\n";

} // namespace

class Devices : public Sandbox {};

// Every header is composed by hand; printf says what it must be.
TEST_F(Devices, HeadersAreWhatPrintfWouldMakeOfThem) {
    const int priorities[] = {0, 5, 99, 100, 12345, -1, -5, -99, INT32_MIN};
    const long long counters[] = {0, 7, -7, 1234567890123LL, INT64_MAX, INT64_MIN};
    char ours[256];
    char printfs[256];
    for (const int priority : priorities) {
        for (const long long counter : counters) {
            for (const std::uint32_t thread : {0U, 0xabcU, 0x90a1f9e8U, 0xffffffffU}) {
                const int length = ComposeCounterHeader(ours, sizeof(ours), counter, thread, priority);
                EXPECT_EQ(length, std::snprintf(printfs, sizeof(printfs), "%lld <0x%8.8x:%03d> ", counter,
                                                thread, priority));
                EXPECT_STREQ(ours, printfs);
            }
        }
    }
    for (const int sub : {7, 57920, 65535, 32767, 32768, 999}) {
        const _SYSTEMTIME time{124, 2, 2, 5, 14, 7, 9, static_cast<std::uint16_t>(sub)};
        ComposeDateHeader(ours, sizeof(ours), time, 0xf0000001U, 5);
        std::snprintf(printfs, sizeof(printfs), "%04d%02d%02d%02d%02d%02d.%03d <0x%8.8x:%03d> ", 124, 2, 5,
                      14, 7, 9, static_cast<std::int16_t>(sub), 0xf0000001U, 5);
        EXPECT_STREQ(ours, printfs);
    }
    char cut[8];
    EXPECT_EQ(ComposePrefix(cut, sizeof(cut), 3, "Scanner"), 17);
    EXPECT_STREQ(cut, "<WARN> ");
}

namespace {

/// Compares the library's formatting of a message with the C library's, in a buffer of each size up to one in
/// which it fits.
[[gnu::format(printf, 1, 2)]] void ExpectAsPrintf(const char* format, ...) {
    for (std::size_t size = 1; size <= 80; ++size) {
        std::string ours(size, '?');
        std::string theirs(size, '?');
        va_list arguments;
        va_start(arguments, format);
        const int length = FormatMessage(ours.data(), size, format, arguments);
        va_end(arguments);
        va_start(arguments, format);
        EXPECT_EQ(length, std::vsnprintf(theirs.data(), size, format, arguments));
        va_end(arguments);
        EXPECT_STREQ(ours.c_str(), theirs.c_str()) << format;
    }
}

} // namespace

// Plain conversions are composed by hand, the others by the C library; the results must not differ.
TEST_F(Devices, MessagesAreWhatPrintfWouldMakeOfThem) {
    ExpectAsPrintf("%s", "");
    ExpectAsPrintf("no conversion, 100%%");
    ExpectAsPrintf("page %d of %s, %i%%", 3, "job", INT_MIN);
    ExpectAsPrintf("%u %x %c|", UINT_MAX, 0xdeadbeefU, 'z');
    ExpectAsPrintf("%ld %li %lu %lx", LONG_MIN, LONG_MAX, ULONG_MAX, 0xabcdUL);
    ExpectAsPrintf("%lld %lli %llu %llx", LLONG_MIN, LLONG_MAX, ULLONG_MAX, 0ULL);
    ExpectAsPrintf("%d %5d %d", 1, 2, 3);
    ExpectAsPrintf("%s %-6s| %.2s %s", "a", "b", "cde", "f");
    ExpectAsPrintf("%d %f %s %hhd %zu %X %o", 7, 1.5, "x", static_cast<signed char>(-7), sizeof(int), 255U,
                   8U);
    ExpectAsPrintf("%+d % d %#x %08ld %ls %lc", 1, 2, 3U, 4L, L"wide", static_cast<wint_t>(L'w'));
    const char* volatile nothing = nullptr; // the compiler would refuse to print it
    ExpectAsPrintf("[%s] %d", nothing, 5);
}

TEST_F(Devices, TheConsolePrintsWhetherOrNotItIsOpen) {
    auto* console = new CConsole;
    console->AddRef();
    const std::string output = CapturedOutput([&] {
        Write(*console, "closed;");
        console->Init(nullptr);
        console->WriteDataRaw(Bytes("raw;"), 4);
        console->WritePreFormattedMessage(const_cast<char*>("H "), 2, Bytes("m\n"), 2);
        console->WritePreFormattedMessage(const_cast<char*>("H "), 2, Bytes("m\r"), 2);
        console->WritePreFormattedMessage(const_cast<char*>("H "), 2, Bytes("none"), 0);
        console->WriteData(nullptr, 5);
        console->WriteData(Bytes("negative"), -1);
        console->WriteDataRaw(Bytes("negative"), -1);
    });
    ExpectMatch(output, Header() + "closed;raw;H m\nH m\r\r\n");
    EXPECT_TRUE(console->IsOpen());
    console->Close();
    EXPECT_FALSE(console->IsOpen());
    console->Release();
}

TEST_F(Devices, ALogHoldsItsCalibrationLineAndEveryLineEnded) {
    CRollingLogFile log;
    _TraceConfig config = LogConfig(L"log", L"log");
    log.Init(&config);
    ASSERT_TRUE(log.IsOpen());
    Write(log, "ends by itself\n");
    Write(log, "is ended");
    log.WriteDataRaw(Bytes("raw"), 3);
    log.WritePreFormattedMessage(const_cast<char*>("head\n"), 5, Bytes("body"), 4);
    log.WritePreFormattedMessage(const_cast<char*>("head"), 0, Bytes("body"), 4);
    log.WritePreFormattedMessage(nullptr, 4, Bytes("body"), 4);
    log.WriteData(nullptr, 4);
    log.WriteData(Bytes("x"), 0);
    log.WriteDataRaw(Bytes("x"), -3);
    EXPECT_EQ(CountOf(ReadFile("log"), "\n"), 1U) << "only the calibration line bypasses the buffer";
    log.Flush();
    ExpectMatch(ReadFile("log"), Header() + kCalibration + Header() + "ends by itself\n" + Header() +
                                     "is ended\r\nraw\r\nhead\nbody\r\n");
    // Opening it again appends, with a record of another type as well as with none.
    _TraceConfig console = DeviceConfig(TRACE_DEVICE_CONSOLE, L"log");
    log.Init(&console);
    EXPECT_TRUE(log.IsOpen());
    log.Init(nullptr);
    EXPECT_TRUE(log.IsOpen());
    log.Close();
    Write(log, "dropped");
    EXPECT_EQ(Lines(ReadFile("log")).size(), 8U);
    EXPECT_EQ(CountOf(ReadFile("log"), "dropped"), 0U);
}

TEST_F(Devices, TheOrderOfLinesHoldsAtEveryLengthAroundTheBuffer) {
    CRollingLogFile log;
    _TraceConfig config = LogConfig(L"log", L"log");
    log.Init(&config);
    std::string expected;
    for (int length = 4080; length < 4110; ++length) {
        for (const bool ended : {false, true}) {
            std::string text(static_cast<std::size_t>(length), static_cast<char>('a' + length % 26));
            text.back() = ended ? '\n' : 'z';
            log.WriteDataRaw(Bytes(text.c_str()), length);
            log.WriteDataRaw(Bytes("short\n"), 6);
            expected += text + (ended ? "" : "\r\n") + "short\n";
        }
    }
    const std::size_t shortest = ReadFile("log").size();
    log.WriteDataRaw(Bytes(std::string(4093, 'b').c_str()), 4093);
    EXPECT_EQ(ReadFile("log").size(), shortest + 6) << "a line of less than 4094 bytes is still buffered";
    log.WriteDataRaw(Bytes(std::string(4094, 'b').c_str()), 4094);
    EXPECT_EQ(ReadFile("log").size(), shortest + 6 + 4095 + 4096)
        << "a line of 4094 bytes bypasses the buffer";
    log.Close();
    const std::string content = ReadFile("log");
    EXPECT_EQ(content.substr(content.find('\n') + 1, expected.size()), expected);
}

TEST_F(Devices, AFinalFlushEndsTheBufferingForGood) {
    CRollingLogFile log;
    _TraceConfig config = LogConfig(L"log", L"log");
    log.Init(&config);
    log.WriteDataRaw(Bytes("held back\n"), 10);
    log.Flush(true);
    log.WriteDataRaw(Bytes("at once\n"), 8);
    EXPECT_EQ(CountOf(ReadFile("log"), "held back\nat once\n"), 1U);
    log.Init(&config);
    log.WriteDataRaw(Bytes("still\n"), 6);
    EXPECT_EQ(CountOf(ReadFile("log"), "still\n"), 1U);
}

TEST_F(Devices, AFullLogWithoutBackupsIsOverwrittenFromItsStart) {
    CRollingLogFile log;
    WriteFile("log", std::string(6000, 'o'));
    _TraceConfig config = LogConfig(L"log", L"log", 5000, 0, false);
    // Without the append flag the existing file is first rolled: here it is rewound, and never truncated.
    log.Init(&config);
    const std::string content = ReadFile("log");
    EXPECT_EQ(content.size(), 6000U);
    ExpectMatch(content.substr(0, content.find('\n') + 1), Header() + kCalibration);
    EXPECT_EQ(content.back(), 'o');
    log.Flush(true);
    const std::string line(1000, 'n');
    for (int i = 0; i < 5; ++i) {
        log.WriteDataRaw(Bytes(line.c_str()), 1000);
    }
    // The fifth line reaches the maximum: the next is at the start, after a calibration line.
    log.WriteDataRaw(Bytes("again\n"), 6);
    ExpectMatch(ReadFile("log").substr(0, 150), Header() + kCalibration + "again\n[^]*");
    EXPECT_EQ(Listing("."), std::vector<std::string>{"log"});
}

TEST_F(Devices, ARollNeedsThePropertyFileName) {
    WriteFile(".10", "a stranger's");
    const std::string line(2000, 'x');
    const std::string output = CapturedOutput([&] {
        CRollingLogFile log;
        _TraceConfig config = LogConfig(L"log", L"log", 3000, 1);
        log.Init(&config);
        log.Flush(true);
        for (int i = 0; i < 4; ++i) {
            log.WriteDataRaw(Bytes(line.c_str()), 2000);
        }
    });
    // The count of bytes stays, so every line from the second on rolls and reports.
    EXPECT_EQ(output, std::string(kRollMessage) + kRollMessage + kRollMessage);
    EXPECT_EQ(Listing("."), std::vector<std::string>{"log"}) << ".10 belongs to the backups of an empty name";
}

TEST_F(Devices, ALogNamedByItsPropertyRollsIntoOneBackup) {
    CRollingLogFile log;
    log.SetFileName(L"log");
    _TraceConfig config = LogConfig(L"log", L"log", 3000, 5, true);
    log.Init(&config);
    log.Flush(true);
    EXPECT_EQ(Listing("."), std::vector<std::string>{"log"});
    config.settings.rollingLogFile.append = false;
    log.Init(&config);
    EXPECT_EQ(Listing("."), (std::vector<std::string>{"log", "log.1"}))
        << "rolled at once without the append flag";
    WriteFile("log.10", "older");
    const std::string output = CapturedOutput([&] {
        for (int i = 0; i < 5; ++i) {
            log.WriteDataRaw(Bytes(std::string(1500, static_cast<char>('a' + i)).c_str()), 1500);
        }
    });
    log.Close();
    EXPECT_EQ(output, "");
    EXPECT_EQ(Listing("."), (std::vector<std::string>{"log", "log.1"}));
    const std::string header = Header() + kCalibration;
    ExpectMatch(ReadFile("log.1"), header + "c{1500}\r\nd{1500}\r\n");
    ExpectMatch(ReadFile("log"), header + "e{1500}\r\n");
}

namespace {

constexpr int kWriters = 4;
constexpr int kLinesOfWriter = 500;

/// Each thread writes texts that contain its name and a count, and some are delayed where they read the
/// clock. Returns whether this took so little time that the fall of the counter at a new second cannot be
/// confused with one that was read too early.
bool WriteFromThreads(ITraceDevice& device) {
    const auto begin = std::chrono::steady_clock::now();
    g_HoldUpAtClock = true;
    StartTogether(kWriters, [&](int) {
        const std::string part = ThreadPart();
        for (int i = 0; i < kLinesOfWriter; ++i) {
            Write(device, part + std::to_string(i) + "\n");
        }
    });
    g_HoldUpAtClock = false;
    return std::chrono::steady_clock::now() - begin < std::chrono::milliseconds(400);
}

void ExpectWholeLinesInOrder(const std::string& text) {
    const std::size_t part = ThreadPart().size();
    std::map<std::string, int> next;
    long long last = 0;
    for (const std::string& line : Lines(text)) {
        const std::size_t header = line.find(' ') + 1;
        const long long counter = std::atoll(line.c_str());
        ASSERT_TRUE(last == 0 || counter >= last || counter < last - 500'000'000) << last << "\n" << line;
        last = counter;
        if (line.find("<CAL>") == std::string::npos) {
            const std::string thread = line.substr(header, part);
            ASSERT_EQ(line.substr(header), thread + thread + std::to_string(next[thread]++));
        }
    }
    ASSERT_EQ(next.size(), std::size_t{kWriters});
    for (const auto& [thread, count] : next) {
        EXPECT_EQ(count, kLinesOfWriter) << thread;
    }
}

} // namespace

TEST_F(Devices, LinesOfSeveralThreadsStayWholeAndInTheOrderOfTheirCounters) {
    bool quick = false;
    while (!quick) {
        ::unlink("log");
        CRollingLogFile log;
        _TraceConfig config = LogConfig(L"log", L"log");
        log.Init(&config);
        quick = WriteFromThreads(log);
    }
    ExpectWholeLinesInOrder(ReadFile("log"));

    auto* const console = new CConsole;
    console->AddRef();
    std::string output;
    do {
        output = CapturedOutput([&] { quick = WriteFromThreads(*console); });
    } while (!quick);
    ExpectWholeLinesInOrder(output);
    console->Release();
}

TEST_F(Devices, AFailedOpenLeavesItsOwnErrorNumber) {
    CRollingLogFile log;
    _TraceConfig config = LogConfig(L"log", L"no/such/folder/log");
    errno = 0;
    log.Init(&config);
    EXPECT_FALSE(log.IsOpen());
    EXPECT_EQ(errno, ENOENT);
    Write(log, "dropped");
    log.Flush();
    ::rmdir("log");
    ASSERT_EQ(::system("mkdir log"), 0);
    config = LogConfig(L"log", L"log");
    log.Init(&config);
    EXPECT_FALSE(log.IsOpen());
    EXPECT_EQ(errno, EISDIR);
    config.settings.rollingLogFile.fileName = nullptr;
    log.Init(&config);
    EXPECT_EQ(errno, ENOENT);
    ASSERT_EQ(::mkfifo("pipe", 0700), 0);
    config.settings.rollingLogFile.fileName = L"pipe";
    EXPECT_EQ(CapturedOutput([&] { log.Init(&config); }),
              "HOLD IT!!! Failed to seek to the end of the trace log, trace is disabled!\r\n");
    EXPECT_FALSE(log.IsOpen());
    EXPECT_EQ(errno, ESPIPE);
    WriteFile("target", "");
    ASSERT_EQ(::symlink("target", "link"), 0);
    config.settings.rollingLogFile.fileName = L"link";
    log.Init(&config);
#ifdef __arm__
    EXPECT_EQ(errno, ELOOP) << "the flag has another meaning there";
#endif
    EXPECT_EQ(log.IsOpen(), sizeof(void*) == 8);
}

TEST_F(Devices, AFullDiskCostsTheNewLinesOnly) {
    const TinyDisk disk("tiny", 64);
    if (!disk.mounted()) {
        GTEST_SKIP() << "cannot mount a file system here";
    }
    CRollingLogFile log;
    _TraceConfig config = LogConfig(L"log", L"tiny/log");
    log.Init(&config);
    const std::string line = std::string(99, 'l') + "\n";
    log.WriteDataRaw(Bytes(line.c_str()), 100);
    log.Flush();
    const std::string before = ReadFile("tiny/log");
    disk.Fill();
    for (int i = 0; i < 500; ++i) {
        log.WriteDataRaw(Bytes(line.c_str()), 100);
    }
    log.Flush();
    EXPECT_TRUE(log.IsOpen());
    EXPECT_EQ(ReadFile("tiny/log").substr(0, before.size()), before);
    ::unlink("tiny/filler");
    log.WriteDataRaw(Bytes("room again\n"), 11);
    log.Close();
    EXPECT_EQ(CountOf(ReadFile("tiny/log"), "room again\n"), 1U);
}

class MemoryQueues : public Sandbox {
  protected:
    void Configure(const wchar_t* file, int depth, int mode) {
        _TraceConfig config = DeviceConfig(TRACE_DEVICE_MEMORY_QUEUE, L"queue");
        config.settings.memoryQueue = {depth, file, mode};
        queue_.Init(&config);
    }
    void WriteAll(const std::vector<std::string>& lines) {
        for (const std::string& line : lines) {
            Write(queue_, line);
        }
    }
    std::string Flushed() {
        queue_.Flush();
        return ReadFile("out");
    }
    static std::string DateHeader() { return "[0-9]{14}\\.(-[0-9]{2,5}|[0-9]{3,5}) " + ThreadPart(); }

    CMemoryQueue queue_;
};

TEST_F(MemoryQueues, KeepsTheLatestLinesAndWritesThemOnce) {
    Configure(L"out", 1, 0);
    queue_.SetQueueDepth(3);
    WriteAll({"A", "B", "C", std::string(600, 'D')});
    queue_.WritePreFormattedMessage(const_cast<char*>("no"), 2, Bytes("no"), 2);
    ExpectMatch(Flushed(), DateHeader() + "B" + DateHeader() + "C" + DateHeader() + "D{600}");
    EXPECT_EQ(Flushed(), "") << "every flush replaces the file";
    queue_.WriteDataRaw(Bytes("raw as it is"), 12);
    queue_.WriteData(Bytes("x"), 0);
    queue_.WriteData(Bytes("x"), -1);
    queue_.WriteData(nullptr, 3);
    EXPECT_EQ(Flushed(), "raw as it is");
    struct stat status {};
    ::stat("out", &status);
    EXPECT_EQ(status.st_mode & 0111, 0110U & ~0022U) << "0776 under the usual mask";
    queue_.SetQueueDepth(1);
    WriteAll({"not kept", "kept"});
    ExpectMatch(Flushed(), DateHeader() + "kept");
    queue_.SetQueueDepth(0);
    WriteAll({"nothing", "is", "kept"});
    EXPECT_EQ(Flushed(), "");
}

TEST_F(MemoryQueues, HoldsAThousandUnlessToldAndWritesThemInFewCalls) {
    Configure(L"out", 1, 0);
    Write(queue_, "one too many");
    std::string expected;
    std::thread([&] {
        Write(queue_, "elsewhere"); // stamped by the thread that writes, not by the one that flushes
        expected = ThreadPart() + "elsewhere";
    }).join();
    for (int i = 1; i < 1000; ++i) {
        const std::string line(static_cast<std::size_t>(i % 50 == 0 ? 5000 + i : i % 100 + 1), 'x');
        Write(queue_, line);
        expected += ThreadPart() + line;
    }
    g_Writes = 0;
    std::string text = Flushed();
    EXPECT_LT(g_Writes, 100U);
    EXPECT_EQ(std::regex_replace(text, std::regex("[0-9]{14}\\.-?[0-9]{2,5} "), ""), expected);
}

TEST_F(MemoryQueues, AShortOrFailedWriteCostsNoMoreThanTheRestOfWhatItStoppedIn) {
    const auto flushed = [this](const std::vector<long>& writesTake) {
        Configure(L"out", 1, 0);
        for (const char* record : {"AAAAA", "BBBBB", "CCCCC", "DDDDD"}) {
            queue_.WriteDataRaw(Bytes(record), 5);
        }
        g_WritesTake = writesTake;
        return Flushed();
    };
    EXPECT_EQ(flushed({}), "AAAAABBBBBCCCCCDDDDD");
    EXPECT_EQ(flushed({7}), "AAAAABBCCCCCDDDDD");
    EXPECT_EQ(flushed({5}), "AAAAABBBBBCCCCCDDDDD");
    EXPECT_EQ(flushed({-1}), "BBBBBCCCCCDDDDD");
    EXPECT_EQ(flushed({0, 12}), "BBBBBCCCCCDD");
    EXPECT_EQ(flushed({-1, -1, -1, -1}), "");
    Configure(L"out", 1, 0);
    WriteAll({"text"});
    g_WritesTake = {4};
    ExpectMatch(Flushed(), "[0-9]{4}text"); // a header is a separate piece
}

TEST_F(MemoryQueues, ModeSaysWhatBecomesOfTheQueue) {
    Configure(L"out", 0, 0);
    WriteAll({"discarded"});
    queue_.Close();
    EXPECT_FALSE(Exists("out"));
    Configure(L"", 0, 1);
    WriteAll({"written by close"});
    queue_.Close();
    ExpectMatch(ReadFile("out"), DateHeader() + "written by close");
    WriteAll({"written by init"});
    Configure(L"other", 0, 2);
    ExpectMatch(ReadFile("out"), DateHeader() + "written by init");
    // If the depth is lowered below the fill, the queue is full: with mode bit 2 the rest is written out.
    WriteAll({"1", "2", "3", "4"});
    queue_.SetQueueDepth(2);
    WriteAll({"5"});
    ExpectMatch(ReadFile("other"), DateHeader() + "2" + DateHeader() + "3" + DateHeader() + "4");
    queue_.Flush();
    ExpectMatch(ReadFile("other"), DateHeader() + "5");
}

TEST_F(MemoryQueues, AFileThatCannotBeOpenedCostsNothing) {
    Configure(L"no/such/folder", 0, 0);
    WriteAll({"kept"});
    queue_.Flush();
    ASSERT_EQ(::system("mkdir no && mkdir no/such"), 0);
    queue_.Flush();
    ExpectMatch(ReadFile("no/such/folder"), DateHeader() + "kept");
}

} // namespace Nima::Testing
