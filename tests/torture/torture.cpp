/// Kills a host at random moments, in every way that a process dies, and checks what it leaves: it must end
/// in time and in the right way, every stack-trace file must hold frames, and every file must be announced
/// exactly once.
///
///     torture [--seconds N] [--seed N] [--way NAME]
///
/// The host does what hosts do: it allocates, traces, loads modules and throws, in one thread or in several.
/// A run prints its seed; the same seed dies in the same ways again, though not at the same instructions. The
/// exit status is 0 if every death was as it must be.

#include "tests/support/StackTraces.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cinttypes>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Diagnostics/CrashApi.h>
#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>
#include <Diagnostics/TraceServices.h>

using namespace Nima::Common::System::OS::Diagnostics;
using Nima::Testing::IsFrame;
using Nima::Testing::NotificationPort;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// A host that has not ended by then hangs. It should take much less; a busy machine stretches the time.
constexpr milliseconds kHangs{20000};

NimaTrace g_Trace("Torture");
std::atomic<bool> g_Go{false};

// ---- the host

void Allocate() {
    std::vector<std::string> texts;
    for (std::size_t i = 0; i < 50; ++i) {
        texts.emplace_back(i * 97 % 4000 + 1, 'x');
    }
}

void TraceSome() {
    g_Trace.WriteWarnV("line %d", 1);
    RTTrace_2(0x10500001, 1, 2);
    TRACE_RING_HANDLE ring = nullptr;
    if (GetTraceRingBuffer(4, &ring) == 0) {
        WriteEventToRingBuffer(ring, 0, 1, 2, 3, 4, 5);
    }
}

void LoadModule() {
    void* const module = ::dlopen(TORTURE_MODULE, RTLD_NOW | RTLD_LOCAL);
    if (module != nullptr) {
        reinterpret_cast<int (*)(int)>(::dlsym(module, "ModuleWork"))(100);
        ::dlclose(module);
    }
}

void Throw() {
    try {
        throw std::runtime_error(std::string(100, 'e'));
    } catch (const std::exception&) {
        Allocate();
    }
}

constexpr void (*kWork[])() = {Allocate, TraceSome, LoadModule, Throw};

[[noreturn]] void WorkForEver(unsigned first) {
    for (unsigned turn = first;; ++turn) {
        kWork[turn % std::size(kWork)]();
    }
}

// ---- the ways to die

volatile int* g_Nowhere = nullptr;

__attribute__((noinline)) void Fault() {
    g_Nowhere = reinterpret_cast<int*>(0x1000);
    *g_Nowhere = 1;
}

__attribute__((noinline)) int Recurse(int depth) {
    volatile char room[200];
    room[0] = static_cast<char>(depth);
    return depth == 0 ? (Fault(), 0) : Recurse(depth - 1) + room[0];
}

__attribute__((noinline)) int Overflow(int depth) {
    volatile char room[1000];
    room[0] = static_cast<char>(depth);
    return depth == -1 ? 0 : Overflow(depth + 1) + room[0];
}

void SmashHeap() {
    auto* const block = static_cast<char*>(std::malloc(40));
    auto* const next = static_cast<char*>(std::malloc(2000));
    // Past the end, over the next block's size. A compiler that knew the length would warn.
    const volatile std::size_t length = 64;
    std::memset(block, 0x41, length);
    std::free(next);
    std::free(std::malloc(5000));
    std::abort(); // some overruns go unnoticed
}

std::atomic<void*> g_Freed{nullptr};

__attribute__((noinline)) void FreeWhatWasFreed() {
    std::free(g_Freed.load());
}

void FreeTwice() {
    g_Freed = std::malloc(2000);
    void* const keep = std::malloc(2000);
    FreeWhatWasFreed();
    FreeWhatWasFreed();
    std::free(keep);
    std::abort();
}

void UseUpDescriptors() {
    while (::open("/dev/null", O_RDONLY) != -1) {
    }
    Fault();
}

/// Another thread holds the loader's lock for good.
void FaultBesideTheLoader() {
    std::thread([] {
        ::dl_iterate_phdr(
            [](dl_phdr_info*, std::size_t, void*) {
                g_Go = true;
                ::pause();
                return 0;
            },
            nullptr);
    }).detach();
    while (!g_Go) {
    }
    Fault();
}

void FaultWithoutFolder() {
    std::error_code ignored; // another thread may be creating a file in it
    fs::remove_all(fs::current_path(), ignored);
    Fault();
}

void FaultWithBrokenPipes() {
    int ends[2];
    if (::pipe(ends) == 0) {
        ::close(ends[0]);
        ::dup2(ends[1], STDOUT_FILENO);
        ::dup2(ends[1], STDERR_FILENO);
    }
    Fault();
}

void FaultWithFullPipes() {
    int ends[2];
    if (::pipe(ends) == 0) {
        ::fcntl(ends[1], F_SETFL, O_NONBLOCK);
        while (::write(ends[1], "x", 1) == 1) {
        }
        ::fcntl(ends[1], F_SETFL, 0);
        ::dup2(ends[1], STDOUT_FILENO);
#ifndef __arm__ // there the emulator writes a line of its own to standard error, and waits
        ::dup2(ends[1], STDERR_FILENO);
#endif
    }
    Fault();
}

void FaultWithoutStandardDescriptors() {
    ::close(STDIN_FILENO);
    ::close(STDOUT_FILENO);
    ::close(STDERR_FILENO);
    Fault();
}

void FaultInFourThreads() {
    std::vector<std::jthread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([] {
            while (!g_Go) {
            }
            Fault();
        });
    }
    g_Go = true;
}

void ThrowForNobody() {
    std::thread([] { throw std::runtime_error("nobody catches this"); }).join();
}

enum class End { Abort, Exit };

struct Way {
    const char* name;
    int signal; ///< sent from outside while the host works; 0 for a death that it causes itself
    void (*act)();
    int files; ///< -1 for any number, but at least one
    End end;
    int status; ///< of an exit
};

constexpr int kFatalStatus = 77;

constexpr Way kWays[] = {
    {"signal-segv", SIGSEGV, nullptr, 2, End::Abort, 0},
    {"signal-bus", SIGBUS, nullptr, 2, End::Abort, 0},
    {"signal-abrt", SIGABRT, nullptr, 1, End::Abort, 0},
    {"fault", 0, Fault, 2, End::Abort, 0},
    {"deep", 0, [] { Recurse(10000); }, 2, End::Abort, 0},
    {"overflow", 0, [] { Overflow(0); }, 2, End::Abort, 0},
    {"overrun", 0, SmashHeap, 1, End::Abort, 0},
    {"double-free", 0, FreeTwice, 1, End::Abort, 0},
    {"descriptors", 0, UseUpDescriptors, 2, End::Abort, 0},
    {"loader", 0, FaultBesideTheLoader, 2, End::Abort, 0},
    {"no-folder", 0, FaultWithoutFolder, 0, End::Abort, 0},
    {"broken-pipes", 0, FaultWithBrokenPipes, 2, End::Abort, 0},
    {"full-pipes", 0, FaultWithFullPipes, 2, End::Abort, 0},
    {"no-standard-descriptors", 0, FaultWithoutStandardDescriptors, 2, End::Abort, 0},
    {"four-threads", 0, FaultInFourThreads, -1, End::Abort, 0},
    {"exception", 0, ThrowForNobody, 2, End::Abort, 0},
    {"report", 0, [] { HandleFatalCrash("torture", "", 1, "torture.cpp", 1); }, 2, End::Abort, 0},
    {"exit", 0, [] { std::exit(3); }, 0, End::Exit, 3},
    {"fatal-error", 0, [] { DeviceFatalError(kFatalStatus, "torture.cpp", 1); }, 0, End::Exit, kFatalStatus},
};

[[noreturn]] void BeHost(const Way& way, int threads, milliseconds delay) {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    ::dup2(::open("out", O_WRONLY | O_CREAT, 0600), STDOUT_FILENO);
    ::dup2(::open("err", O_WRONLY | O_CREAT, 0600), STDERR_FILENO);
    rlimit descriptors{256, 256};
    ::setrlimit(RLIMIT_NOFILE, &descriptors);
    InstallCrashHandler(0);
    TraceServices::ConfigureDefaultLog(L"device.log", 1 << 20, 0, true);
    for (int i = 1; i < threads; ++i) {
        std::thread(WorkForEver, static_cast<unsigned>(i)).detach();
    }
    if (way.signal != 0) {
        WorkForEver(0);
    }
    const auto end = Clock::now() + delay;
    for (unsigned turn = 0; Clock::now() < end; ++turn) {
        kWork[turn % std::size(kWork)]();
    }
    way.act();
    std::_Exit(99);
}

// ---- who watches it

/// The numbers of a process's files that were announced, in order.
std::vector<int> Announced(const NotificationPort& port, pid_t process) {
    const std::regex name("/stacktrace" + std::to_string(process) + "-([0-9]+)\\.txt\r\n");
    std::vector<int> numbers;
    for (const std::string& text : port.Received()) {
        if (std::smatch match; std::regex_search(text, match, name)) {
            numbers.push_back(std::stoi(match[1]));
        }
    }
    return numbers;
}

struct Death {
    pid_t process = 0;
    int status = 0;
    milliseconds took{0};
    bool hung = false;
};

/// To whichever of the host's threads the system picks. The emulator has a thread of its own, which leaves
/// SIGSEGV unblocked and dies of it; there the signal goes to the host's first thread.
void Send(pid_t process, int signal) {
#ifdef __arm__
    ::syscall(SYS_tgkill, process, process, signal);
#else
    ::kill(process, signal);
#endif
}

Death Die(const Way& way, int threads, milliseconds delay) {
    Death death;
    std::fflush(nullptr);
    death.process = ::fork();
    if (death.process == 0) {
        BeHost(way, threads, delay);
    }
    auto begin = Clock::now() + delay;
    if (way.signal != 0) {
        // Not before it has installed its handler.
        while (!fs::exists("device.log")) {
            std::this_thread::sleep_for(milliseconds(1));
        }
        std::this_thread::sleep_for(delay);
        begin = Clock::now();
        Send(death.process, way.signal);
    }
    while (::waitpid(death.process, &death.status, WNOHANG) == 0) {
        std::this_thread::sleep_for(milliseconds(1));
        if (Clock::now() - begin > kHangs) {
            death.hung = true;
            ::kill(death.process, SIGKILL);
            ::waitpid(death.process, &death.status, 0);
            break;
        }
    }
    death.took = std::chrono::duration_cast<milliseconds>(Clock::now() - begin);
    return death;
}

std::string FramesProblem(const std::string& path, bool isReport) {
    std::ifstream in(path);
    int frames = 0;
    for (std::string line; std::getline(in, line);) {
        if (line.starts_with("0x") && IsFrame(line)) {
            ++frames;
        } else if (!isReport) {
            return std::string(path).append(" contains a line that is not a frame: ").append(line);
        }
        if (line.find("InstallHandler") != std::string::npos) {
            return path + " holds a frame of the handler's own";
        }
    }
    return frames > 0 ? "" : path + " holds no frames";
}

/// What is wrong with a death, or nothing.
std::string Problem(const Way& way, const Death& death, const NotificationPort& port) {
    if (death.hung) {
        return "hangs";
    }
    const bool ended = way.end == End::Abort
                           ? WIFSIGNALED(death.status) && WTERMSIG(death.status) == SIGABRT
                           : WIFEXITED(death.status) && WEXITSTATUS(death.status) == way.status;
    if (!ended) {
        return "ended with wait status " + std::to_string(death.status);
    }
    std::set<int> files;
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(fs::current_path(ignored), ignored)) {
        const std::string name = entry.path().filename().string();
        if (name.rfind("stacktrace", 0) == 0) {
            const int number = std::stoi(name.substr(name.find('-') + 1));
            files.insert(number);
            const bool isReport = std::strcmp(way.name, "report") == 0 && number == 1;
            if (std::string problem = FramesProblem(name, isReport); !problem.empty()) {
                return problem;
            }
        }
    }
    const std::vector<int> announced = Announced(port, death.process);
    if (std::strcmp(way.name, "no-folder") == 0) {
        return announced.size() == 2
                   ? ""
                   : std::to_string(announced.size()) + " datagrams without a folder, not 2";
    }
    if (way.files >= 0 ? files.size() != static_cast<std::size_t>(way.files) : files.empty()) {
        return std::to_string(files.size()) + " files";
    }
    const std::size_t datagrams = announced.size();
    if (datagrams != files.size() || std::set<int>(announced.begin(), announced.end()) != files) {
        return std::to_string(files.size()) + " files, " + std::to_string(datagrams) + " datagrams";
    }
    return "";
}

struct Options {
    int seconds = 60;
    std::uint64_t seed = std::random_device()();
    std::string way;
};

Options Read(int count, char** arguments) {
    Options options;
    for (int i = 1; i + 1 < count; i += 2) {
        const std::string name = arguments[i];
        if (name == "--seconds") {
            options.seconds = std::atoi(arguments[i + 1]);
        } else if (name == "--seed") {
            options.seed = std::strtoull(arguments[i + 1], nullptr, 10);
        } else if (name == "--way") {
            options.way = arguments[i + 1];
        }
    }
    return options;
}

int Torture(int count, char** arguments) {
    const Options options = Read(count, arguments);
    std::printf("torture: %d seconds, seed %" PRIu64 "\n", options.seconds, options.seed);
    std::vector<const Way*> ways;
    for (const Way& way : kWays) {
        if (options.way.empty() || options.way == way.name) {
            ways.push_back(&way);
        }
    }
    if (ways.empty()) {
        std::fprintf(stderr, "torture: no such way to die: %s\n", options.way.c_str());
        return 2;
    }
    std::mt19937_64 random(options.seed);
    const NotificationPort port;
    char home[] = "/tmp/torXXXXXX";
    if (::mkdtemp(home) == nullptr) {
        std::perror("torture");
        return 2;
    }
    std::map<std::string, milliseconds> slowest;
    int deaths = 0;
    int bad = 0;
    for (const auto end = Clock::now() + std::chrono::seconds(options.seconds); Clock::now() < end;
         ++deaths) {
        const Way& way = *ways[random() % ways.size()];
        const int threads = random() % 3 == 0 ? 1 : 2 + static_cast<int>(random() % 4);
        const milliseconds delay(random() % 20);
        const std::string folder = std::string(home) + "/" + std::to_string(deaths);
        fs::create_directory(folder);
        fs::current_path(folder);
        const Death death = Die(way, threads, delay);
        const std::string problem = Problem(way, death, port);
        slowest[way.name] = std::max(slowest[way.name], death.took);
        if (!problem.empty()) {
            ++bad;
            std::printf("%s with %d threads after %d ms: %s (%d ms, %s)\n", way.name, threads,
                        static_cast<int>(delay.count()), problem.c_str(),
                        static_cast<int>(death.took.count()), folder.c_str());
        }
        fs::current_path(home);
        if (problem.empty()) {
            fs::remove_all(folder);
        }
    }
    for (const auto& [way, took] : slowest) {
        std::printf("%-24s slowest %5d ms\n", way.c_str(), static_cast<int>(took.count()));
    }
    std::printf("%d deaths, %d not as they should be\n", deaths, bad);
    fs::current_path("/");
    if (bad == 0) {
        fs::remove_all(home);
    }
    return bad == 0 ? 0 : 1;
}

} // namespace

int main(int count, char** arguments) {
    try {
        return Torture(count, arguments);
    } catch (const std::exception& problem) {
        std::fprintf(stderr, "torture: %s\n", problem.what());
        return 2;
    }
}
