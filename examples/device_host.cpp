/// A model of a device. The components of a multifunction printer, each on a thread of its own, trace through
/// the default log, the binary trace and the rings, and log events. Meanwhile another thread changes the
/// level, flushes, and moves the log to a new file. The components process the lines of a text file. At the
/// end the program looks for every one of these lines in the logs, and dumps the binary trace and the rings.

#include "ways_to_die.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include <getopt.h>

#include <Diagnostics/EventLog.h>
#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>
#include <Diagnostics/RollingLogFile.h>
#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceServices.h>

using namespace Nima::Common::System::OS::Diagnostics;

namespace {

constexpr const char* kDayLog = "device.log";
constexpr const char* kNightLog = "device-night.log";
constexpr const char* kNightLogBackup = "device-night.log.1";
constexpr const char* kHistoryFile = "engine-history.txt";
constexpr const char* kRingDump = "rings.txt";
/// Header, level, component and line end: roughly what a line takes besides its message.
constexpr std::size_t kLineOverhead = 90;

constexpr std::size_t kMinLogSize = 16384;

struct Work {
    std::vector<std::string> lines;
    std::atomic<std::size_t> done{0};

    /// The room that the remaining lines will take in a log.
    std::size_t RemainingBytes() const {
        std::size_t sum = 0;
        for (std::size_t i = done.load(); i < lines.size(); ++i) {
            sum += lines[i].size() + kLineOverhead;
        }
        return sum;
    }
};

/// One component of the device. It takes every n-th line of the work and writes it as a warning, which no
/// level set by this program filters out, together with a binary record and a ring event. In between it
/// writes lines of its own at every level. A log file ends each line by itself; the console prints text as it
/// is, so there the messages have their own line ends.
class Component {
  public:
    Component(const char* name, unsigned number, RING_BUFFERS ring, bool console)
        : trace_(name), number_(number), end_(console ? "\n" : "") {
        GetTraceRingBuffer(ring, &ring_);
    }

    void Run(Work& work, std::size_t first, std::size_t step) {
        for (std::size_t i = first; i < work.lines.size(); i += step) {
            const std::string& line = work.lines[i];
            trace_.WriteWarnV("input %zu: %s%s", i, line.c_str(), end_);
            RTTrace_2(SYSTRACE_ID(number_, 0, kEventLine), i, line.size());
            WriteEventToRingBuffer(ring_, 0, kEventLine, i, line.size(), 0, 0);
            work.done.fetch_add(1);
            if (i / step % kChatterInterval == 0) {
                Chatter(i);
                std::this_thread::sleep_for(std::chrono::microseconds(200));
            }
        }
    }

  private:
    static constexpr std::size_t kChatterInterval = 50;
    static constexpr unsigned kEventLine = 1;
    static constexpr unsigned kEventPage = 2;

    void Chatter(std::size_t page) {
        trace_.WriteDebugV("buffer %p holds page %zu%s", static_cast<void*>(this), page, end_);
        trace_.WriteInfoV("page %zu done%s", page, end_);
        char tag[128];
        const int length =
            TraceFormatPerfTag(tag, sizeof(tag), "Page", true, "End", "Raster", "12", "ms", nullptr);
        trace_.WritePerf(reinterpret_cast<const unsigned char*>(tag), length);
        trace_.WriteErrorV("paper low after page %zu (%d sheets left)%s", page, 7, end_);
        const unsigned char status[] = {'o', 'k', '\n'};
        trace_.WriteFatal("status", status, sizeof(status));
        RTTrace_3(SYSTRACE_ID(number_, 1, kEventPage), page, 7, 12);
        LogEvents(page);
    }

    void LogEvents(std::size_t page) const {
        const std::wstring number = std::to_wstring(page);
        const PayloadEntry entries[] = {{L"Page", number.c_str()}, {L"Tray", L"2"}};
        LogEvent(EVENT_TYPE_ERROR, L"DeviceHost", kEventPage, L"device_host.cpp", __LINE__, entries, 2);
        EventLogPayload payload;
        payload.AddHashedData("User", "someone");
        payload.AddNonHashedData("Page", std::to_string(page).c_str());
        EventLog::LogEvent(EVENT_TYPE_ERROR, "DeviceHost", number_, payload);
    }

    NimaTrace trace_;
    unsigned number_;
    const char* end_;
    TRACE_RING_HANDLE ring_ = nullptr;
};

/// What the host's callbacks received. They are called one at a time, so it needs no lock.
struct ReceivedEvents {
    std::size_t wide = 0;
    std::size_t records = 0;
    std::wstring firstPayload;
    std::string firstRecord;
};

ReceivedEvents& Received() {
    static ReceivedEvents events;
    return events;
}

unsigned long OnEvent(EventTypes /*type*/, const wchar_t* /*source*/, unsigned long /*id*/,
                      const wchar_t* /*file*/, int /*line*/, const wchar_t* payloadXml) {
    if (Received().wide++ == 0 && payloadXml != nullptr) {
        Received().firstPayload = payloadXml;
    }
    return 0;
}

unsigned long OnVantorEvent(EventTypes /*type*/, unsigned long size, unsigned char* record) {
    if (Received().records++ == 0) {
        Received().firstRecord.assign(reinterpret_cast<const char*>(record), size);
    }
    return 0;
}

void PrintReceivedEvents() {
    const ReceivedEvents& events = Received();
    std::printf("%8zu wide events received, the first with %ls\n", events.wide, events.firstPayload.c_str());
    std::printf("%8zu flat records received, the first of %zu bytes\n", events.records,
                events.firstRecord.size());
    std::ofstream("event-record.bin", std::ios::binary) << events.firstRecord;
}

/// Waits until that many lines have been written.
void AwaitProgress(const Work& work, std::size_t lines) {
    while (work.done.load() < lines) {
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

void SweepLevels() {
    for (const int level :
         {TRACE_THRESHOLD_DEBUG, TRACE_THRESHOLD_INFO, TRACE_THRESHOLD_PERF, TRACE_THRESHOLD_WARN}) {
        TraceSetEffectiveLevel(level);
        std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
}

/// Moves the default log to a smaller file, of which one backup is kept when it is full.
int MoveToNightLog(const Work& work) {
    TRACE_DEVICE_HANDLE log = nullptr;
    if (TraceDeviceFind(L"LogFile", &log) < 0) {
        return -1;
    }
    // A property: the name that a roll renames. The day log is far from rolling, so nobody reads the name
    // meanwhile.
    static_cast<CRollingLogFile*>(log)->SetFileName(L"device-night.log");
    TraceDeviceRelease(log);
    const auto size = static_cast<unsigned>(std::max(kMinLogSize, work.RemainingBytes() * 6 / 10));
    return TraceServices::ConfigureDefaultLog(L"device-night.log", size, 1, true);
}

/// Keeps the engine's last lines in memory and writes them out once.
int KeepHistory(const Work& work) {
    _TraceConfig config{};
    config.type = TRACE_DEVICE_MEMORY_QUEUE;
    config.name = L"EngineHistory";
    config.settings.memoryQueue.fileName = L"engine-history.txt";
    TRACE_DEVICE_HANDLE history = nullptr;
    const int result = TraceDeviceCreate(&config, &history);
    if (result != 0) {
        return result;
    }
    const std::size_t first = work.lines.size() > 3 ? work.lines.size() - 3 : 0;
    for (std::size_t i = first; i < work.lines.size(); ++i) {
        TraceDeviceWrite(history, (work.lines[i] + "\n").c_str(), -1);
    }
    TraceDeviceFlush(history);
    TraceDeviceRelease(history);
    return 0;
}

/// Counts in `seen` the lines of the work that a log contains.
std::size_t CountInputLines(const char* file, std::vector<int>& seen) {
    std::ifstream in(file);
    std::string line;
    std::size_t count = 0;
    while (std::getline(in, line)) {
        const std::size_t mark = line.find("> input ");
        if (mark != std::string::npos) {
            const std::size_t number = std::strtoul(line.c_str() + mark + 8, nullptr, 10);
            if (number < seen.size()) {
                ++seen[number];
                ++count;
            }
        }
    }
    return count;
}

bool AccountForLines(const Work& work) {
    std::vector<int> seen(work.lines.size());
    for (const char* file : {kDayLog, kNightLogBackup, kNightLog}) {
        std::printf("%8zu input lines in %s\n", CountInputLines(file, seen), file);
    }
    const auto once = static_cast<std::size_t>(std::count(seen.begin(), seen.end(), 1));
    std::printf("%8zu of %zu input lines found exactly once\n", once, work.lines.size());
    return once == work.lines.size();
}

int Usage(FILE* out) {
    std::fputs(
        "usage: device_host [--console] [--input FILE] [--lines N] [--die HOW]\n"
        "  --console     trace to standard output instead of log files\n"
        "  --input FILE  the text whose lines the components trace (default /var/log/dpkg.log)\n"
        "  --lines N     take at most N lines of it, at least 1\n"
        "  --die HOW     after the work die by fatal, exception, exit, segv, abort, terminate or report, in "
        "a\n"
        "                child process, and print the crash notifications and how it ended\n"
        "Leaves in the working directory: device.log, device-night.log with its backup,\n"
        "engine-history.txt, SysTrace.bin, rings.txt, event-record.bin and the two shared segments.\n"
        "and with --die what the death leaves: crash.txt, stack-trace files, a SysTrace.bin with a "
        "backslash.\n"
        "Exit status: 0 when every line was accounted for, 1 otherwise, 2 for bad usage or input;\n"
        "with --die 0 when the device did die.\n",
        out);
    return out == stdout ? 0 : 2;
}

struct Options {
    bool console = false;
    std::string input = "/var/log/dpkg.log";
    std::size_t maxLines = static_cast<std::size_t>(-1);
    std::string death; ///< how to die after the work; empty for not at all
};

/// A whole number of at least 1; 0 for anything else.
std::size_t ParseCount(const char* text) {
    char* end = nullptr;
    const long long value = std::strtoll(text, &end, 10);
    return *text != '\0' && *end == '\0' && value > 0 ? static_cast<std::size_t>(value) : 0;
}

bool LoadWork(const Options& options, Work& work) {
    std::ifstream in(options.input);
    if (!in) {
        std::fprintf(stderr, "device_host: cannot open %s\n", options.input.c_str());
        return false;
    }
    std::string line;
    while (work.lines.size() < options.maxLines && std::getline(in, line)) {
        work.lines.push_back(line);
    }
    if (work.lines.empty()) {
        std::fprintf(stderr, "device_host: %s has no lines\n", options.input.c_str());
        return false;
    }
    return true;
}

void RunComponents(Work& work, bool console) {
    SysTraceConfigure();
    SetupEventLogCallbacks(OnEvent, OnVantorEvent);
    std::array<Component, 4> components{Component("Scanner", 1, RING_SCAN_ENGINE, console),
                                        Component("Engine", 2, RING_PRINT_ENGINE, console),
                                        Component("Fax", 3, RING_FACSIMILE, console),
                                        Component("Copier", 4, RING_COPIER, console)};
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < components.size(); ++i) {
        threads.emplace_back([&, i] { components[i].Run(work, i, components.size()); });
    }
    AwaitProgress(work, work.lines.size() / 4);
    SweepLevels();
    TraceDeviceFlushAll(false);
    AwaitProgress(work, work.lines.size() / 2);
    if (!console && MoveToNightLog(work) != 0) {
        std::fputs("cannot move the log\n", stderr);
    }
    SweepLevels();
    for (std::thread& thread : threads) {
        thread.join();
    }
}

int Run(const Options& options) {
    Work work;
    if (!LoadWork(options, work)) {
        return 2;
    }
    if (options.console) {
        const int result = TraceServices::ConfigureDefaultLog();
        RunComponents(work, true);
        return result == 0 ? 0 : 1;
    }
    for (const char* file : {kDayLog, kNightLog, kNightLogBackup, kHistoryFile, kRingDump}) {
        std::remove(file);
    }
    const int result = TraceServices::ConfigureDefaultLog(L"device.log", 64U << 20, 0, true);
    if (result != 0) {
        std::fprintf(stderr, "cannot open device.log: error %d\n", result);
        return 1;
    }
    RunComponents(work, false);
    TraceTest(0, "at the end of the run");
    TraceDeviceFlushAll(false);
    PrintReceivedEvents();
    DumpSysTrace(L"SysTrace.bin", 2);
    DumpRingBuffersUnformatted(L"rings.txt", 2);
    return KeepHistory(work) == 0 && AccountForLines(work) ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    const option longOptions[] = {
        {"console", no_argument, nullptr, 'c'},     {"input", required_argument, nullptr, 'i'},
        {"lines", required_argument, nullptr, 'n'}, {"die", required_argument, nullptr, 'd'},
        {"help", no_argument, nullptr, 'h'},        {nullptr, 0, nullptr, 0}};
    Options options;
    for (int option = 0; (option = ::getopt_long(argc, argv, "", longOptions, nullptr)) != -1;) {
        switch (option) {
            case 'c':
                options.console = true;
                break;
            case 'i':
                options.input = optarg;
                break;
            case 'n':
                options.maxLines = ParseCount(optarg);
                if (options.maxLines == 0) {
                    return Usage(stderr);
                }
                break;
            case 'd':
                options.death = optarg;
                if (!IsWayToDie(options.death)) {
                    return Usage(stderr);
                }
                break;
            case 'h':
                return Usage(stdout);
            default:
                return Usage(stderr);
        }
    }
    if (optind != argc) {
        return Usage(stderr);
    }
    if (options.death.empty()) {
        return Run(options);
    }
    return WatchOver([&options] {
        PrepareForCrashes();
        Run(options);
        Die(options.death);
    });
}
