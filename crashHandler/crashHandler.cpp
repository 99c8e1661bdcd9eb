#include "crashHandler/crashHandler.h"

#include "catalogue/Files.h"
#include "catalogue/Marks.h"
#include "crashHandler/CrashThreads.h"
#include "crashHandler/Descriptors.h"
#include "crashHandler/FrameWriter.h"
#include "crashHandler/Moments.h"
#include "crashHandler/StackReport.h"
#include "crashHandler/TextLine.h"
#include "crashHandler/WatchedWork.h"

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <initializer_list>

#include <fcntl.h>
#include <pthread.h>
#include <sys/auxv.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <ucontext.h>
#include <unistd.h>

#include <Diagnostics/CrashApi.h>

using namespace CrashHandling;
namespace Catalogue = Nima::Catalogue;

namespace {

// Fixed text in lines 3 and 4 of a report; these are not this file's line numbers.
constexpr int kReportLine = 258;
constexpr int kCallStackLine = 260;

/// How long the handlers try to create a file after an earlier failure, in milliseconds; the first time it is
/// `kPatience`.
constexpr long long kPatienceAfterFailure = 100;
constexpr long long kForEver = -1;
/// A file system that claims that more numbers than this are taken is broken.
constexpr int kMostNumbers = 100000;

constexpr std::size_t kAlternateStackSize = std::size_t{128} * 1024;
/// What another signal takes of an alternate stack, apart from the system's own frame.
constexpr std::size_t kEntryRoom = std::size_t{5} * 1024;

/// The return address of `signalHandler` in our own function that calls it. That frame would mean nothing to
/// a reader.
constinit std::atomic<std::uintptr_t> g_OurCaller{0};

using ReportLine = TextLine<kFrameLineSize>;

void Write(int descriptor, const ReportLine& line) {
    WriteAll(descriptor, line.text(), line.length());
}

/// "file, line n", which begins the lines of a report.
ReportLine LineOf(const char* file, int line) {
    ReportLine text;
    return text.Add(file).Add(", line ").AddDecimal(line);
}

/// If the thread is being cancelled, its first system call would unwind it out of the handler, and the crash
/// would be lost.
void PutOffCancellation() {
    int before = 0;
    ::pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &before);
}

/// `abort` alone does not unblock the signal if it has been interrupted on its way before: it would then go
/// on without the signal, to an exit in the end.
[[noreturn]] void Abort() {
    LetAbortThrough();
    std::abort();
}

/// Ends the process by SIGABRT's default action, whatever the host or this handler has done with the signal.
[[noreturn]] void EndByAbort() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    ::sigaction(SIGABRT, &action, nullptr);
    LetAbortThrough();
    ::raise(SIGABRT);
    std::abort();
}

/// The calling thread's reports are done. Reports of other threads may finish before the process ends.
[[noreturn]] void EndLastEntry(CrashThread* thread) {
    if (thread != nullptr) {
        thread->reporting.store(false);
    }
    NoteCrashActivity();
    WaitForOtherCrashThreads();
    EndByAbort();
}

/// Like `getFileName`, for `patience` milliseconds. Returns -1 if no file could be created by then. `name` is
/// then the last one tried, and never that of another's file: taken numbers are skipped, however long that
/// takes.
int CreateStackFile(int* descriptor, char* name, long long patience) {
    constexpr long kPause = 10000000;
    const long long begin = Milliseconds();
    for (int number = 1;; ++number) {
        TextLine<kStackFileNameSize> text;
        text.Add("./").Add(Catalogue::kStackTracePrefix).AddDecimal(::getpid());
        text.Add("-").AddDecimal(number).Add(Catalogue::kStackTraceSuffix);
        std::memcpy(name, text.text(), kStackFileNameSize);
        *descriptor = OpenAboveStandard(name, O_WRONLY | O_CREAT | O_EXCL | O_APPEND | O_NONBLOCK, 0777);
        if (*descriptor != -1) {
            return *descriptor;
        }
        if (errno == EEXIST && number < kMostNumbers) {
            NoteCrashActivity();
            continue;
        }
        if (patience != kForEver && Milliseconds() - begin >= patience) {
            return -1;
        }
        PauseFor(kPause); // at the moment no number helps
    }
}

/// A crash's file, from its creation to its announcement.
struct StackFile {
    int descriptor = -1;
    char name[kStackFileNameSize] = {};
};

void Create(CrashThread* thread, StackFile& file) {
    const bool failedBefore = thread != nullptr && thread->withoutFile;
    Attempt(thread, [&] {
        CreateStackFile(&file.descriptor, file.name, failedBefore ? kPatienceAfterFailure : kPatience);
    });
    if (thread != nullptr) {
        thread->withoutFile = file.descriptor == -1;
        thread->unannounced = file.name;
    }
}

void Announce(CrashThread* thread, const char* name) {
    if (thread != nullptr) {
        thread->unannounced = nullptr;
    }
    Attempt(thread, [&] { notifyMoskAboutCrash(name); });
}

void NoteSyncing(CrashThread* thread, bool syncing) {
    if (thread != nullptr) {
        thread->syncing.store(syncing);
    }
}

void CloseAndAnnounce(CrashThread* thread, StackFile& file) {
    Attempt(thread, [&] {
        if (file.descriptor != -1) {
            NoteSyncing(thread, true);
            ::fsync(file.descriptor);
            NoteSyncing(thread, false);
            ::close(file.descriptor);
        }
    });
    Announce(thread, file.name);
}

/// Every way into the handler begins here. From now on nothing that is written ends the thread, and other
/// threads wait for it.
CrashThread* Enter() {
    PutOffCancellation();
    CrashThread* const thread = EnterCrashThread();
    BlockSideSignals();
    return thread;
}

std::uintptr_t InterruptedInstruction(const void* context) {
    const auto& registers = static_cast<const ucontext_t*>(context)->uc_mcontext;
#ifdef __arm__
    return registers.arm_pc;
#else
    return static_cast<std::uintptr_t>(registers.gregs[REG_RIP]);
#endif
}

bool IsFault(int signal) {
    return signal == SIGSEGV || signal == SIGILL || signal == SIGTRAP || signal == SIGFPE ||
           signal == SIGBUS || signal == SIGSYS;
}

/// What the system calls. A fault within a step of the handler ends that step. A fault signal that somebody
/// sends to a thread already dying is ignored.
void OnSignal(int signal, siginfo_t* info, void* context) {
    CrashThread* const known = CurrentCrashThread();
    if (known != nullptr && IsFault(signal)) {
        if (info->si_code <= 0) {
            return;
        }
        if (known->recovery != nullptr) {
            siglongjmp(*known->recovery, 1);
        }
    }
    if (CrashThread* const thread = EnterCrashThread()) {
        thread->interrupted = InterruptedInstruction(context);
        thread->calledByUs = true;
    }
    signalHandler(signal);
    __asm__ volatile(""); // keeps this frame on the stack, where it is looked for
}

bool AbortComesHere() {
    struct sigaction action {};
    return ::sigaction(SIGABRT, nullptr, &action) == 0 && action.sa_sigaction == OnSignal;
}

// SA_SIGINFO makes the kernel lay out the frame that the unwinder recognises, under emulation too.
// SA_RESTART, and a mask with only the signal itself, are what `signal` installs. SA_ONSTACK saves a thread
// whose own stack is full, if it has an alternate one.
void InstallHandler(int number) {
    struct sigaction action {};
    action.sa_sigaction = OnSignal;
    action.sa_flags = SA_RESTART | SA_SIGINFO | SA_ONSTACK;
    ::sigemptyset(&action.sa_mask);
    ::sigaction(number, &action, nullptr);
}

/// For the calling thread, unless it has one. The stack is never freed, since the handlers stay installed
/// too.
void GiveAlternateStack() {
    stack_t present{};
    if (::sigaltstack(nullptr, &present) != 0 || (present.ss_flags & SS_DISABLE) == 0) {
        return;
    }
    const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    void* const mapped = ::mmap(nullptr, page + kAlternateStackSize, PROT_READ | PROT_WRITE,
                                MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (mapped == MAP_FAILED) {
        return;
    }
    ::mprotect(mapped, page, PROT_NONE);
    stack_t given{};
    given.ss_sp = static_cast<unsigned char*>(mapped) + page;
    given.ss_size = kAlternateStackSize;
    ::sigaltstack(&given, nullptr);
}

/// An `exit` in one thread does not cut off what another reports. Runs after the host's own exit functions;
/// on a crash the process ends by an abort, and not with the status of an exit that is faster than the abort
/// of the thread that has reported.
[[gnu::destructor]] void WaitForReports() {
    WaitForOtherCrashThreads();
    if (AnotherThreadCrashed()) {
        EndByAbort();
    }
}

} // namespace

int getFileName(int* descriptor, char* name) {
    return CreateStackFile(descriptor, name, kForEver);
}

[[gnu::noinline]] void saveStackTrace(int descriptor, const char* /*name*/) {
    unw_context_t context;
    unw_getcontext(&context);
    if (descriptor != -1) {
        WriteStack(CurrentCrashThread(), descriptor, context, g_OurCaller.load());
    }
}

[[gnu::noinline]] void signalHandler(int signal) {
    CrashThread* const thread = Enter();
    if (thread == nullptr) {
        EndLastEntry(thread); // more threads than anybody would read about
    }
    if (signal == SIGABRT && thread->last) {
        EndByAbort(); // an abort in the handler itself
    }
    thread->last = signal == SIGABRT;
    if (thread->calledByUs) {
        g_OurCaller.store(reinterpret_cast<std::uintptr_t>(__builtin_return_address(0)));
        thread->calledByUs = false;
    }
    if (thread->unannounced != nullptr) {
        Announce(thread, thread->unannounced); // an abort in the middle of the previous entry
    }
    StackFile file;
    Create(thread, file);
    ReportLine line;
    line.Add("Error: signal ").AddDecimal(signal).Add("\n");
    Attempt(thread, [&] { WriteIfReady(STDERR_FILENO, line.text(), line.length()); });
    saveStackTrace(file.descriptor, file.name);
    CloseAndAnnounce(thread, file);
    if (signal == SIGABRT) {
        EndLastEntry(thread);
    }
    if (RoomOnAlternateStack() < ::getauxval(AT_MINSIGSTKSZ) + kEntryRoom && AbortComesHere()) {
        // Enters what the abort would enter if there were room for a signal.
        void (*volatile const entry)(int) = signalHandler;
        entry(SIGABRT);
    }
    Abort();
}

void terminateHandler() {
    CrashThread* const thread = Enter();
    if (thread != nullptr) {
        thread->interrupted = reinterpret_cast<std::uintptr_t>(__builtin_return_address(0));
    }
    StackFile file;
    Create(thread, file);
    saveStackTrace(file.descriptor, file.name);
    CloseAndAnnounce(thread, file);
    Abort();
}

void InstallCrashHandler(int coreSizeLimit) {
#ifdef __arm__
    // The only reliable way to unwind there: the default takes other values for frame pointers, and faults.
    ::setenv("UNW_ARM_UNWIND_METHOD", "4", 0);
#endif
    KeepDescriptorsBack();
    PrepareChildren();
    PrepareFrames();
    GiveAlternateStack();
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
    CrashThread* const thread = Enter();
    const auto orEmpty = [](const char* text) { return text != nullptr ? text : ""; };
    message = orEmpty(message);
    callStack = orEmpty(callStack);
    file = orEmpty(file);
    if (thread != nullptr) {
        thread->interrupted = reinterpret_cast<std::uintptr_t>(__builtin_return_address(0));
    }
    StackFile report;
    Create(thread, report);
    const int descriptor = report.descriptor;
    const int callersLine = static_cast<int>(line);
    Attempt(thread, [&] {
        Write(descriptor, LineOf(file, callersLine).Add(Catalogue::kReportMessage).Add(message).Add("]\r\n"));
        Write(descriptor, LineOf(file, callersLine)
                              .Add(Catalogue::kReportCode)
                              .AddDecimal(static_cast<int>(code))
                              .Add(", 0x")
                              .AddHex(code, 8)
                              .Add("\r\n"));
        Write(descriptor, LineOf(Catalogue::kReportUnit, kReportLine)
                              .Add(": File: ")
                              .Add(file)
                              .Add(", line ")
                              .AddDecimal(line)
                              .Add("\r\n"));
        Write(descriptor,
              LineOf(Catalogue::kReportUnit, kCallStackLine).Add(Catalogue::kReportCallStack).Add("\r\n"));
        WriteAll(descriptor, callStack, std::strlen(callStack));
    });
    if (*callStack == '\0') {
        saveStackTrace(descriptor, report.name);
    }
    CloseAndAnnounce(thread, report);
    LetAbortThrough();
    ::raise(SIGABRT);
    EndByAbort(); // the host ignores or blocks the signal
}
