/// Makes what five troubled printers leave behind, in a folder each of the working directory, for the stories
/// in doc/nima-post.md. Each device is a process of its own, since most of them die.

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Diagnostics/CrashApi.h>
#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceServices.h>

using namespace Nima::Common::System::OS::Diagnostics;
using std::chrono::milliseconds;

namespace {

constexpr unsigned kScanner = 1;
constexpr unsigned kEngine = 2;
constexpr unsigned kPageStarts = 3;
constexpr unsigned kPageDone = 4;
constexpr int kScannerHangs = 0x0012DEAD;
constexpr int kNoCalibration = 0x0031CA11;

void Start(const char* firmware) {
    g_CrashLogFile = L"crash.txt";
    g_TriageFilePath = L"triage";
    InstallCrashHandler(0);
    TraceServices::ConfigureDefaultLog(L"device.log", 1 << 20, 0, true);
    SysTraceConfigure();
    NimaTrace("Main").WriteWarnV("firmware %s starts", firmware);
}

void Stop() {
    TraceDeviceFlushAll(true);
    DumpSysTrace(L"SysTrace.bin", 0);
}

void Page(NimaTrace& trace, unsigned component, unsigned page, unsigned takes) {
    RTTrace_1(SYSTRACE_ID(component, 0, kPageStarts), page);
    std::this_thread::sleep_for(milliseconds(takes));
    RTTrace_2(SYSTRACE_ID(component, 0, kPageDone), page, takes);
    trace.WriteWarnV("page %u done in %u ms", page, takes);
}

/// The toner's counter is read from a chip that was pulled out.
[[gnu::noinline]] int TonerLeft(const volatile int* chip) {
    return *chip;
}

void Crash() {
    Start("4.2.1");
    NimaTrace engine("Engine");
    for (unsigned page = 1; page <= 100; ++page) {
        Page(engine, kEngine, page, 3);
    }
    engine.WriteErrorV("toner chip does not answer");
    std::this_thread::sleep_for(milliseconds(3));
    engine.WriteWarnV("%d pages of toner left", TonerLeft(reinterpret_cast<const volatile int*>(0x1000)));
}

/// The scanner waits for a lock that the copier never gives back; after a while a watchdog ends the process.
void Hang() {
    Start("4.2.1");
    std::mutex glass;
    std::thread scanner([&glass] {
        NimaTrace trace("Scanner");
        for (unsigned page = 1;; ++page) {
            std::unique_lock hold(glass);
            Page(trace, kScanner, page, 5);
            hold.unlock();
            std::this_thread::sleep_for(milliseconds(1)); // or the mutex would go to this thread again
        }
    });
    std::this_thread::sleep_for(milliseconds(60));
    glass.lock();
    NimaTrace("Copier").WriteWarnV("glass taken for a copy");
    NimaTrace engine("Engine");
    for (unsigned page = 1; page <= 20; ++page) {
        Page(engine, kEngine, page, 10);
    }
    DeviceFatalError(kScannerHangs, "watchdog.cpp", __LINE__);
}

void FailsToStart() {
    Start("4.3.0");
    NimaTrace("Engine").WriteWarnV("heating up");
    std::this_thread::sleep_for(milliseconds(30));
    NimaTrace("Engine").WriteErrorV("calibration table has version 7, expected 8");
    DeviceFatalError(kNoCalibration, "calibration.cpp", __LINE__);
}

/// From page 31 on each page waits for the network.
void Slow() {
    Start("4.3.0");
    NimaTrace engine("Engine");
    for (unsigned page = 1; page <= 40; ++page) {
        if (page == 31) {
            NimaTrace("Network").WriteErrorV("name server does not answer, asking again for each page");
        }
        Page(engine, kEngine, page, page > 30 ? 60 : 5);
    }
    Stop();
}

void Healthy() {
    Start("4.2.1");
    NimaTrace engine("Engine");
    for (unsigned page = 1; page <= 40; ++page) {
        Page(engine, kEngine, page, 5);
    }
    Stop();
}

void MustWork(bool worked, const char* what) {
    if (!worked) {
        std::perror(what);
        std::exit(1);
    }
}

/// Lets a device run in its folder.
pid_t Run(const std::string& folder, const std::function<void()>& device) {
    ::mkdir(folder.c_str(), 0777);
    const pid_t child = ::fork();
    MustWork(child >= 0, "field_cases: fork");
    if (child == 0) {
        MustWork(::chdir(folder.c_str()) == 0 && std::freopen("/dev/null", "w", stdout) != nullptr &&
                     std::freopen("/dev/null", "w", stderr) != nullptr,
                 folder.c_str());
        device();
        ::_exit(0);
    }
    return child;
}

} // namespace

int main() {
    std::vector<pid_t> devices = {Run("crashed", Crash), Run("hung", Hang), Run("slow", Slow),
                                  Run("healthy", Healthy)};
    ::mkdir("bundle", 0777);
    for (int unit = 1; unit <= 10; ++unit) {
        devices.push_back(Run("bundle/unit-" + std::to_string(unit), unit == 4   ? Crash
                                                                     : unit == 7 ? FailsToStart
                                                                                 : Healthy));
    }
    for (int start = 0; start < 4; ++start) {
        if (start > 0) {
            std::this_thread::sleep_for(milliseconds(1200));
        }
        ::waitpid(Run("restarting", FailsToStart), nullptr, 0);
    }
    for (const pid_t device : devices) {
        ::waitpid(device, nullptr, 0);
    }
    return 0;
}
