#include "crashHandler/crashHandler.h"

#include "catalogue/Files.h"
#include "catalogue/Marks.h"
#include "catalogue/Notification.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <exception>

#include <arpa/inet.h>
#include <cxxabi.h>
#include <fcntl.h>
#include <libunwind.h>
#include <netinet/in.h>
#include <pthread.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <Diagnostics/CrashApi.h>

namespace {

constexpr const char* kThisUnit = "crashHandler/crashHandler";
constexpr const char* kCorePatternFile = "/proc/sys/kernel/core_pattern";

// Whoever reads a crash file may look these lines up in a report's lines 3 and 4.
constexpr int kReportLine = 258;
constexpr int kCallStackLine = 260;

/// The thread whose entry with SIGABRT is under way: a second one in the same thread comes out of the handler
/// itself.
std::atomic<pthread_t> g_LastEntry{};
std::atomic<bool> g_HasLastEntry{false};

void WriteAll(int descriptor, const char* text, std::size_t length) {
    while (length > 0) {
        const ssize_t written = ::write(descriptor, text, length);
        if (written < 0 && errno == EINTR) {
            continue;
        }
        if (written <= 0) {
            return;
        }
        text += written;
        length -= static_cast<std::size_t>(written);
    }
}

void WriteText(int descriptor, const char* text) {
    WriteAll(descriptor, text, std::strlen(text));
}

/// Formats behind what the line holds already, cut to its buffer.
void Append(char (&line)[kFrameLineSize], const char* format, ...) __attribute__((format(printf, 2, 3)));
void Append(char (&line)[kFrameLineSize], const char* format, ...) {
    const std::size_t used = std::strlen(line);
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line + used, sizeof(line) - used, format, arguments);
    va_end(arguments);
}

void WriteLine(int descriptor, const char* format, ...) __attribute__((format(printf, 2, 3)));
void WriteLine(int descriptor, const char* format, ...) {
    char line[kFrameLineSize] = {};
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(line, sizeof(line), format, arguments);
    va_end(arguments);
    WriteText(descriptor, line);
}

void Pause() {
    const timespec moment{0, 10000000};
    ::nanosleep(&moment, nullptr);
}

/// Ends the process by SIGABRT's default action, whatever the host or the present handler have made of the
/// signal.
[[noreturn]] void EndByAbort() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    ::sigaction(SIGABRT, &action, nullptr);
    std::abort();
}

void CloseFile(int descriptor) {
    ::fsync(descriptor);
    ::close(descriptor);
}

// SA_SIGINFO changes nothing for the handler; it makes the kernel lay out the frame that the unwinder
// recognises, under emulation too. SA_RESTART and a mask of nothing but the signal itself are what `signal`
// installs.
void InstallHandler(int number) {
    struct sigaction action {};
    action.sa_sigaction = [](int signal, siginfo_t* /*info*/, void* /*context*/) { signalHandler(signal); };
    action.sa_flags = SA_RESTART | SA_SIGINFO;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(number, &action, nullptr);
}

/// Appends the frame's function to the line, which is cut and keeps its line feed.
void AppendFunction(unw_cursor_t& cursor, char (&line)[kFrameLineSize]) {
    char symbol[kSymbolNameSize] = {};
    unw_word_t offset = 0;
    if (unw_get_proc_name(&cursor, symbol, sizeof(symbol), &offset) == 0) {
        int status = -1;
        char* const demangled = abi::__cxa_demangle(symbol, nullptr, nullptr, &status);
        Append(line, "%s%s+0x%lx)\n", Nima::Catalogue::kFrameFunction, status == 0 ? demangled : symbol,
               static_cast<unsigned long>(offset));
        std::free(demangled);
    } else {
        Append(line, "%s\n", Nima::Catalogue::kFrameWithoutName);
    }
    if (std::strlen(line) == sizeof(line) - 1) {
        line[sizeof(line) - 2] = '\n';
    }
}

/// The working directory, cut to its buffer; empty if it cannot be had. Unlike `getcwd` the link is read as
/// far as there is room.
void WorkingDirectory(char (&directory)[kWorkingDirectorySize]) {
    std::memset(directory, 0, sizeof(directory));
    if (::readlink("/proc/self/cwd", directory, sizeof(directory) - 1) <= 0 &&
        ::getcwd(directory, sizeof(directory)) == nullptr) {
        directory[0] = '\0';
    }
}

/// A thread that is being cancelled would be unwound out of the handler by its first system call, and the
/// crash be lost.
void PutOffCancellation() {
    int before = 0;
    ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
}

void SendToMosk(const char* text) {
    const int socket = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(Nima::Catalogue::kNotificationPort);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const ssize_t sent = ::sendto(socket, text, std::strlen(text), 0,
                                  reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    // Straight to the descriptor: what the stream holds is lost in the abort that follows.
    WriteLine(STDOUT_FILENO, "sent %d bytes to mosk\n", static_cast<int>(sent));
    if (socket != -1) {
        ::close(socket);
    }
}

} // namespace

int getFileName(int* descriptor, char* name) {
    for (unsigned number = 1;; ++number) {
        std::snprintf(name, kStackFileNameSize, "./%s%d-%d%s", Nima::Catalogue::kStackTracePrefix,
                      static_cast<int>(::getpid()), static_cast<int>(number),
                      Nima::Catalogue::kStackTraceSuffix);
        *descriptor = ::open(name, O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_NONBLOCK, 0777);
        if (*descriptor != -1) {
            return *descriptor;
        }
        if (errno != EEXIST) {
            Pause(); // no number helps at the moment
        }
    }
}

void saveStackTrace(int descriptor, const char* /*name*/) {
    unw_context_t context;
    unw_cursor_t cursor;
    unw_getcontext(&context);
    unw_init_local(&cursor, &context);
    while (unw_step(&cursor) > 0) {
        char line[kFrameLineSize] = {};
        unw_word_t instruction = 0;
        unw_get_reg(&cursor, UNW_REG_IP, &instruction);
        if (instruction == 0) {
            return;
        }
        Append(line, "0x%lx:", static_cast<unsigned long>(instruction));
        AppendFunction(cursor, line);
        WriteText(descriptor, line);
    }
}

void coreDirectory(const char* patternFile, char (&directory)[kCoreDirectorySize]) {
    std::memset(directory, 0, sizeof(directory));
    const int file = ::open(patternFile, O_RDONLY);
    const ssize_t count = file != -1 ? ::read(file, directory, sizeof(directory) - 1) : -1;
    if (file != -1) {
        ::close(file);
    }
    if (count <= 0) {
        std::strncpy(directory, "/var/log", sizeof(directory) - 1);
        return;
    }
    char* const last = std::strrchr(directory, '/');
    if (last != nullptr && last != std::strchr(directory, '/')) {
        *last = '\0';
    } else {
        std::strncpy(directory, "/", sizeof(directory) - 1);
    }
}

void notifyMoskAboutCrash(const char* name) {
    char folder[kWorkingDirectorySize];
    char path[kStackFilePathSize] = {};
    char cores[kCoreDirectorySize];
    char text[kNotificationSize] = {};
    WorkingDirectory(folder);
    const char* const bareName = std::strncmp(name, "./", 2) == 0 ? name + 2 : name;
    std::snprintf(path, sizeof(path), "%s/%s", std::strcmp(folder, "/") == 0 ? "" : folder, bareName);
    coreDirectory(kCorePatternFile, cores);
    std::snprintf(text, sizeof(text), "%s%s%s%s%s", Nima::Catalogue::kNotificationHead, path,
                  Nima::Catalogue::kNotificationFolder, cores, Nima::Catalogue::kNotificationEnd);
    SendToMosk(text);
}

void signalHandler(int signal) {
    PutOffCancellation();
    if (signal == SIGABRT) {
        if (g_HasLastEntry.load() && ::pthread_equal(g_LastEntry.load(), ::pthread_self()) != 0) {
            EndByAbort();
        }
        g_LastEntry.store(::pthread_self());
        g_HasLastEntry.store(true);
    }
    int file = -1;
    char name[kStackFileNameSize];
    getFileName(&file, name);
    WriteLine(STDERR_FILENO, "Error: signal %d\n", signal);
    saveStackTrace(file, name);
    CloseFile(file);
    notifyMoskAboutCrash(name);
    if (signal == SIGABRT) {
        EndByAbort();
    }
    std::abort();
}

void terminateHandler() {
    PutOffCancellation();
    int file = -1;
    char name[kStackFileNameSize];
    getFileName(&file, name);
    saveStackTrace(file, name);
    CloseFile(file);
    notifyMoskAboutCrash(name);
    std::abort();
}

void InstallCrashHandler(int coreSizeLimit) {
#ifdef __arm__
    // The one dependable way to unwind there: the default follows frame pointers that are none, and faults.
    ::setenv("UNW_ARM_UNWIND_METHOD", "4", 0);
#endif
    // The unwinder's first use sets up its tables and takes memory: better now than in a process that is
    // dying.
    const int nowhere = ::open("/dev/null", O_WRONLY);
    saveStackTrace(nowhere, "");
    ::close(nowhere);
    for (const int number : {SIGSEGV, SIGILL, SIGTRAP, SIGFPE, SIGBUS, SIGSEGV, SIGSYS, SIGPIPE, SIGXCPU,
                             SIGXFSZ, SIGABRT, SIGBUS}) {
        InstallHandler(number);
    }
    std::set_terminate(terminateHandler);
    rlimit limit{};
    if (::getrlimit(RLIMIT_CORE, &limit) == 0) {
        const auto wanted = static_cast<rlim_t>(static_cast<long long>(coreSizeLimit));
        limit.rlim_cur = wanted < limit.rlim_max ? wanted : limit.rlim_max;
        ::setrlimit(RLIMIT_CORE, &limit);
    }
}

void HandleFatalCrash(const char* message, const char* callStack, unsigned code, const char* file,
                      unsigned line) {
    PutOffCancellation();
    const auto orEmpty = [](const char* text) { return text != nullptr ? text : ""; };
    message = orEmpty(message);
    callStack = orEmpty(callStack);
    file = orEmpty(file);
    int descriptor = -1;
    char name[kStackFileNameSize];
    getFileName(&descriptor, name);
    WriteLine(descriptor, "%s, line %d%s%s]\r\n", file, static_cast<int>(line),
              Nima::Catalogue::kReportMessage, message);
    WriteLine(descriptor, "%s, line %d: Code: %d, 0x%08x\r\n", file, static_cast<int>(line),
              static_cast<int>(code), code);
    WriteLine(descriptor, "%s, line %d: File: %s, line %u\r\n", kThisUnit, kReportLine, file, line);
    WriteLine(descriptor, "%s, line %d: Callstack:\r\n", kThisUnit, kCallStackLine);
    if (*callStack != '\0') {
        WriteText(descriptor, callStack);
    } else {
        saveStackTrace(descriptor, name);
    }
    CloseFile(descriptor);
    notifyMoskAboutCrash(name);
    ::raise(SIGABRT);
    EndByAbort(); // the host ignores or blocks the signal
}
