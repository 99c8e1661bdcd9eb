#include "ways_to_die.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <stdexcept>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Diagnostics/CrashApi.h>

namespace {

constexpr int kPaperJamNobodyExpected = 0x0031AC05;

void FatalError() {
    const std::int32_t words[] = {17, -1};
    DeviceFatalErrorExtra(kPaperJamNobodyExpected, __FILE__, __LINE__, 2, words);
}

void FatalException() {
    _EXCEPTION_RECORD record{};
    record.ExceptionCode = 0xC0000005;
    record.ExceptionAddress = reinterpret_cast<void*>(&FatalException);
    record.NumberParameters = 1;
    _EXCEPTION_POINTERS pointers{&record, nullptr};
    DeviceFatalException(kPaperJamNobodyExpected, __FILE__, __LINE__, &pointers);
}

void UnannouncedExit() {
    EnableExitTraps();
    std::exit(3);
}

/// Far enough from null that the processor notices, and not a sanitizer.
void WriteThroughWildPointer() {
    volatile int* const wild = reinterpret_cast<volatile int*>(static_cast<std::uintptr_t>(0x1000));
    *wild = 1;
}

void UnhandledException() {
    throw std::runtime_error("nobody catches this");
}

/// A host's own full triage: crash log and binary trace first, then the report.
void Report() {
    GatherTriageSnapshot(L"./crash.txt", 2, 3, kPaperJamNobodyExpected, 0, 0, 0, 0, false);
    HandleFatalCrash("the fuser is on fire", "", kPaperJamNobodyExpected, "ways_to_die.cpp", __LINE__);
}

using Ways = std::map<std::string, void (*)()>;

const Ways& AllWays() {
    static const Ways ways = {{"fatal", FatalError},     {"exception", FatalException},
                              {"exit", UnannouncedExit}, {"segv", WriteThroughWildPointer},
                              {"abort", std::abort},     {"terminate", UnhandledException},
                              {"report", Report}};
    return ways;
}

int ListenOnNotificationPort() {
    const int listener = ::socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(65429);
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
        std::perror("device_host: cannot listen on the notification port");
    }
    return listener;
}

void PrintDatagrams(int listener, int patienceMs) {
    pollfd waiting{listener, POLLIN, 0};
    while (::poll(&waiting, 1, patienceMs) > 0) {
        char text[256] = {};
        if (::recv(listener, text, sizeof(text) - 1, MSG_DONTWAIT) < 0) {
            return;
        }
        std::printf("listener received:\n%s", text);
    }
}

} // namespace

bool IsWayToDie(const std::string& how) {
    return AllWays().contains(how);
}

void PrepareForCrashes() {
    g_CrashLogFile = L"crash.txt";
    g_TriageFilePath = L"triage";
    SetBootCycleForProcess(42);
    InstallCrashHandler(0);
}

void Die(const std::string& how) {
    const auto way = AllWays().find(how);
    if (way != AllWays().end()) {
        way->second();
    }
}

int WatchOver(const std::function<void()>& device) {
    const int listener = ListenOnNotificationPort();
    std::fflush(stdout);
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(listener);
        device();
        ::_exit(0);
    }
    int status = 0;
    while (::waitpid(child, &status, WNOHANG) == 0) {
        PrintDatagrams(listener, 20);
    }
    PrintDatagrams(listener, 0);
    ::close(listener);
    if (WIFSIGNALED(status)) {
        std::printf("the device died of signal %d\n", WTERMSIG(status));
    } else {
        std::printf("the device exited with status %d\n", WEXITSTATUS(status));
    }
    return status != 0 ? 0 : 1;
}
