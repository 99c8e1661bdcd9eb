/// What triage callbacks, adapters and the capture write, section by section.

#include "Diagnostics/RealTime/RingBufferMgr.h"
#include "Diagnostics/Triage/CrashPolicy.h"
#include "Diagnostics/Triage/ModuleListing.h"
#include "Diagnostics/Triage/StandardTriageCallback.h"
#include "Diagnostics/Triage/TriageCapture.h"
#include "platform/Files.h"
#include "tests/support/OwnRing.h"
#include "tests/support/Sandbox.h"

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <map>
#include <thread>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <Diagnostics/CrashApi.h>
#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/RingBufferApi.h>
#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceServices.h>
#include <Diagnostics/TriageCallback.h>

namespace {

/// How much of each file has been brought to the medium, by inode. Never destroyed: the library flushes at
/// the end of the process.
std::map<ino_t, off_t>& g_Synced = *new std::map<ino_t, off_t>;

} // namespace

extern "C" int fsync(int fd) {
    struct stat status {};
    ::fstat(fd, &status);
    g_Synced[status.st_ino] = status.st_size;
    return static_cast<int>(::syscall(SYS_fsync, fd));
}

namespace Nima::Testing {

using namespace Nima::Common::System::OS::Diagnostics;

namespace {

/// Shows the tests what a host's derived callback sees.
class Probe : public StandardExceptionTriageCallback {
  public:
    std::string Summary() {
        const int length = LogFailure();
        EXPECT_EQ(std::strlen(scratch_), static_cast<std::size_t>(length));
        return scratch_;
    }
    void SetFooter(const char* text) { std::memcpy(footer_, text, std::strlen(text) + 1); }
};

/// What a section writes.
template <class Section>
std::string Written(Section section) {
    void* file = _open_file_helper(L"section", 3, 6, O_CREAT | O_TRUNC, 0);
    section(file);
    _close_handle_helper(file);
    return ReadFile("section");
}

std::string Failure(StandardExceptionTriageCallback& callback) {
    return Written([&](void* file) { callback.WhatItIs(file); });
}

_EXCEPTION_RECORD Record() {
    _EXCEPTION_RECORD record{};
    record.ExceptionCode = 0xC0000005;
    record.ExceptionFlags = 3;
    record.ExceptionAddress = reinterpret_cast<void*>(static_cast<std::uintptr_t>(0xBAD0F00D));
    record.NumberParameters = 2;
    record.ExceptionInformation[0] = 1;
    record.ExceptionInformation[1] = static_cast<std::uintptr_t>(-2);
    return record;
}

std::string TraceOf(const std::function<void()>& action) {
    TraceServices::ConfigureDefaultLog(L"trace.log", 1 << 20, 0, true);
    action();
    TraceDeviceFlushAll(false);
    return LogTexts("trace.log");
}

const std::string kTracer = "<FATAL> <Nima.Common.System.OS> ";

} // namespace

class Triage : public Sandbox {};

TEST_F(Triage, FailuresAreClassified) {
    Probe callback;
    EXPECT_EQ(callback.errorCode(), static_cast<std::int32_t>(0xDEADBEEF));
    EXPECT_EQ(callback.faultAddress(), static_cast<std::int32_t>(0xDEADBEEF));
    const auto codeOf = [&](int type, std::uint32_t code) {
        callback.SetExceptionInfo(type, static_cast<long>(code), 5);
        return callback.errorCode();
    };
    EXPECT_EQ(codeOf(0, 7), 0x0049380A);
    EXPECT_EQ(codeOf(1, 0xC0000005), 0x00493813);
    EXPECT_EQ(codeOf(1, 0xC00000FD), 0x00493814);
    EXPECT_EQ(codeOf(1, 0xC0000006), 0x00493807);
    EXPECT_EQ(codeOf(9, 77), 77);
    EXPECT_EQ(callback.faultAddress(), 5);
    EXPECT_EQ(callback.failureType(), 9);
    EXPECT_EQ(callback.GetDump(), 1);
}

TEST_F(Triage, TheFailureBlockIsToTheByte) {
    Probe callback;
    callback.SetExceptionInfo(1, static_cast<long>(0xC00000FDU), static_cast<long>(0xF0000000U));
    SetBootCycleForProcess(-1);
    EXPECT_EQ(Failure(callback),
              "Error Code: 493814\r\nFault Addr: F0000000\r\nCrash Type: 1\r\n"
              "Excpt Code: C00000FD\r\nBoot Cycle: 4294967295\r\n\r\n");
    SetBootCycleForProcess(3);
    long words[] = {1, -1, 0x7FFFFFFF, LONG_MIN, 5, 6};
    callback.SetAssertInfo(INT_MIN, "a%s%n.cpp", -7, nullptr, 6, words);
    const std::string head =
        "Error Code: 80000000\r\nFault Addr: 0\r\nCrash Type: 2\r\nExcpt Code: 0\r\n"
        " File Name: a%s%n.cpp\r\nLine Numbr: -7\r\nBoot Cycle: 3\r\n";
    const std::string last = sizeof(long) == 4 ? "0x80000000" : "0x0";
    EXPECT_EQ(Failure(callback),
              head + "Extra Data:  D0=0x1 D1=0xffffffff D2=0x7fffffff D3=" + last + "\r\n\r\n");
    for (const long none : {0L, -1L, LONG_MIN}) {
        callback.SetAssertInfo(INT_MIN, "a%s%n.cpp", -7, nullptr, none, words);
        EXPECT_EQ(Failure(callback), head + "\r\n");
    }
    callback.SetAssertInfo(1, std::string(5000, 'f').c_str(), 1, nullptr, 3, nullptr);
    EXPECT_EQ(CountOf(Failure(callback), " File Name: " + std::string(255, 'f') + "\r\n"), 1U);
    EXPECT_EQ(CountOf(Failure(callback), "Extra"), 0U);
}

TEST_F(Triage, FailureLinesGoToTraceAndCriticalOutput) {
    SetBootCycleForProcess(0x12);
    struct Case {
        std::function<void(Probe&)> set;
        std::string line;
        std::string traceEnd;
        std::string summary;
    };
    static _EXCEPTION_RECORD record = Record();
    static _EXCEPTION_POINTERS pointers{&record, nullptr};
    static long words[] = {10, 11};
    const std::vector<Case> cases = {
        {[](Probe& p) { p.SetExceptionInfo(1, static_cast<long>(0xC0000005U), 0x1234); },
         "FATAL ERROR!!!  UnhandledExceptionCallback called.  Excptn c0000005 at 1234!  Error is 493813!",
         "\n", "Type=Native Excptn=0xc0000005 Addr=0x00001234 BootCycle=0x00000012"},
        {[](Probe& p) { p.SetAssertInfo(0xAB, "f.cpp", 9, &pointers, 2, words); },
         "FATAL ERROR!!!  DeviceFatalError called, error is ab : f.cpp @ line 9 because of excptn 0xc0000005 "
         "@ "
         "0xbad0f00d!",
         "\r\n", "Type=Native Excptn=0xc0000005 Addr=0xbad0f00d BootCycle=0x00000012 D0=0xa D1=0xb"},
        {[](Probe& p) { p.SetAssertInfo(0xAB, nullptr, 9, nullptr, 1, words); },
         "FATAL ERROR!!!  DeviceFatalError called, error is ab :  @ line 9!", "\r\n",
         "Type=Assert Code=0x000000ab BootCycle=0x00000012 File= Line=9 D0=0xa"},
        {[](Probe& p) { p.SetExceptionInfo(0, 0, 0); },
         "FATAL ERROR!!!  OnExit called, error unknown!  Error will be 49380a!", "\r\n",
         "Type=Unknown FailureId=0 Excptn=0x00000000 BootCycle=0x00000012 Addr=0x00000000"},
    };
    for (const Case& c : cases) {
        Probe callback;
        c.set(callback);
        std::string critical;
        const std::string trace =
            TraceOf([&] { critical = CapturedOutput([&] { EXPECT_EQ(callback.Summary(), c.summary); }); });
        EXPECT_EQ(critical, c.line + "\n");
        EXPECT_EQ(trace.substr(trace.size() - c.line.size() - c.traceEnd.size()), c.line + c.traceEnd);
    }
    // The critical line is cut at 255 characters, and characters that are not ASCII do not keep it from
    // appearing.
    Probe callback;
    callback.SetAssertInfo(1, ("\xE4" + std::string(400, 'x')).c_str(), 1, nullptr, 0, nullptr);
    const std::string critical = CapturedOutput([&] { callback.LogFailure(); });
    EXPECT_EQ(critical.size(), 255U);
    EXPECT_EQ(CountOf(critical, "error is 1 : ?xxx"), 1U);
}

TEST_F(Triage, TheExceptionRecordIsShownIn32Bits) {
    Probe callback;
    const auto stacks = [&] { return Written([&](void* file) { callback.DumpCallstacks(file); }); };
    EXPECT_EQ(stacks(), "\r\nCall Stacks\r\n\r\n");
    _EXCEPTION_RECORD record = Record();
    int context = 0;
    _EXCEPTION_POINTERS pointers{&record, &context};
    callback.SetAssertInfo(1, nullptr, 1, &pointers, 0, nullptr);
    const std::string head = "\r\nCall Stacks\r\n\r\n\r\nBEGIN EXCEPTION RECORD\r\n";
    EXPECT_EQ(stacks(), head +
                            "Exception Record:\r\n   Address: 0xbad0f00d\r\n Exception: 0xc0000005\r\n"
                            "     Flags: 0x00000003\r\n P00=0x00000001\r\n P01=0xfffffffe\r\n"
                            "END EXCEPTION RECORD\r\n");
    record.NumberParameters = 0xFFFFFFFF;
    EXPECT_EQ(CountOf(stacks(), " P"), 15U);
    pointers.ExceptionRecord = nullptr;
    callback.SetAssertInfo(1, nullptr, 1, &pointers, 0, nullptr);
    EXPECT_EQ(stacks(), head + "END EXCEPTION RECORD\r\n");
    callback.DumpCallstacksImpl(nullptr);
    callback.DumpCallstacksImpl(InvalidHandle());
}

namespace {

class FakeModules : public ModuleSource {
  public:
    int Create(int kind, int processId) override {
        EXPECT_EQ(kind, 2);
        EXPECT_EQ(processId, 42);
        return 7;
    }
    int First(int snapshot, _MODULEENTRY32* module) override {
        EXPECT_EQ(snapshot, 7);
        EXPECT_EQ(module->size, 2076U);
        return Next(snapshot, module);
    }
    int Next(int /*snapshot*/, _MODULEENTRY32* module) override {
        if (next == throwAt) {
            throw 1;
        }
        if (next == modules.size()) {
            errno = ENOENT;
            return 0;
        }
        *module = modules[next++];
        return 1;
    }
    void Close(int snapshot) override { closed += snapshot; }

    std::vector<_MODULEENTRY32> modules{{0, 0x1000, 0x100, L"first"}, {0, 0x2000, 0x100, L"second"}};
    std::size_t next = 0;
    std::size_t throwAt = 99;
    int closed = 0;
};

/// The codes of the events since the last call.
std::vector<std::uint32_t> InternalEvents() {
    std::vector<std::uint32_t> codes;
    for (const RingBufferData& record : TakeInternalEvents()) {
        codes.push_back(record.words[0]);
    }
    return codes;
}

} // namespace

TEST_F(Triage, ModulesAreListedWhereASnapshotExists) {
    using Codes = std::vector<std::uint32_t>;
    char scratch[256];
    char out[512];
    InternalEvents();
    const auto list = [&](FakeModules& modules, TriageCallback* callback) {
        BufferOutputAdapter adapter(out, sizeof(out), true);
        return ListModulesOf(modules, scratch, sizeof(scratch), 42, adapter, callback);
    };
    FakeModules modules;
    EXPECT_EQ(list(modules, nullptr), 1);
    const std::string table =
        "BaseAddr   BaseSize   Base+Size  Module\r\n"
        "0x00001000 0x00000100 0x00001100 first\r\n0x00002000 0x00000100 0x00002100 second\r\n";
    EXPECT_EQ(out, table);
    EXPECT_EQ(modules.closed, 7);
    EXPECT_EQ(InternalEvents(), (Codes{0, 3}));

    Probe callback;
    callback.SetExceptionInfo(1, 0xB, 0x2100); // the end address belongs to the module
    FakeModules again;
    EXPECT_EQ(
        TraceOf([&] { list(again, &callback); }),
        kTracer + "FATAL ERROR!!! Found Potential Fault: exception 0x0000000b in second @ 0x00002100!\r\n");

    FakeModules none;
    none.modules.clear();
    EXPECT_EQ(list(none, nullptr), 0);
    EXPECT_EQ(none.closed, 7);
    FakeModules faulty;
    faulty.throwAt = 1;
    EXPECT_EQ(list(faulty, nullptr), 0);
    EXPECT_EQ(CountOf(out, "first\r\nFault getting list of modules."), 1U);
    EXPECT_EQ(faulty.closed, 7);
    EXPECT_EQ(InternalEvents(), (Codes{0, 3, 0, 4, 0, 8}));

    BufferOutputAdapter adapter(out, sizeof(out), true);
    EXPECT_EQ(TriageCallback::ListProcessModules(scratch, sizeof(scratch), 1, adapter), 0)
        << "none on this platform";
    EXPECT_STREQ(out, "");
    EXPECT_EQ(InternalEvents(), (Codes{0, 1}));
}

TEST_F(Triage, AnAdapterThatIsFullStaysFailed) {
    char buffer[10];
    BufferOutputAdapter adapter(buffer, sizeof(buffer), true);
    EXPECT_EQ(adapter.WriteToOutput("abc", 3), 1);
    EXPECT_EQ(adapter.WriteToOutput(nullptr, 3), 0);
    EXPECT_EQ(adapter.WriteToOutput("def", -1), 0);
    EXPECT_EQ(adapter.WriteToOutput("def", 3), 1);
    EXPECT_EQ(adapter.WriteToOutput("ghij", 4), 0) << "exactly full";
    EXPECT_STREQ(buffer, "abcdefghi");
    EXPECT_EQ(adapter.WriteToOutput("", 0), 0);
    BufferOutputAdapter none(nullptr, sizeof(buffer), true);
    EXPECT_EQ(none.WriteToOutput("x", 1), 0);
    BufferOutputAdapter empty(buffer, 0, true);
    EXPECT_EQ(empty.WriteToOutput("x", 1), 0);
    EXPECT_STREQ(buffer, "abcdefghi");
    FileHandleOutputAdapter closed(InvalidHandle(), true);
    EXPECT_EQ(closed.WriteToOutput("x", 1), 0);
}

TEST_F(Triage, WideTextIsWrittenPieceByPiece) {
    char scratch[300];
    const std::wstring text(1000, L'w');
    const auto write = [&](int size, const wchar_t* wide) {
        return Written([&](void* file) { TriageCallback::LowImpactStringWriter(scratch, size, wide, file); });
    };
    EXPECT_EQ(write(300, text.c_str()), std::string(1000, 'w'));
    EXPECT_EQ(write(7, text.c_str()), std::string(1000, 'w'));
    EXPECT_EQ(write(7, nullptr) + write(7, L"") + write(0, L"x"), "");
}

TEST_F(Triage, ADyingProcessWaitsForItsDebuggerAndGoesOnAfterIt) {
    const std::string output = CapturedOutput([] {
        const int status = InChild([] {
            g_CrashLogFile = L"crash.txt";
            ::alarm(20);
            WaitForDebugSetup(1);
            std::thread([] {
                WaitUntil([] { return CountOf(ReadFile("crash.txt"), "All Done") > 0; });
                ::usleep(50000);
                std::printf("debugged;");
                std::fflush(stdout);
                ContinueAfterCrash();
            }).detach();
            DeviceFatalError(5, "f", 1);
        });
        EXPECT_EQ(WEXITSTATUS(status), 5);
    });
    EXPECT_LT(output.find("debugged;"), output.find("AutoRecover")) << output;
}

TEST_F(Triage, PathsAreSplitAtTheirLastSeparator) {
    wchar_t folder[8];
    wchar_t name[8];
    const auto split = [&](const wchar_t* path) {
        SplitPath(path, folder, 8, name, 8);
        return std::wstring(folder) + L"|" + name;
    };
    EXPECT_EQ(split(L"/a/b.txt"), L"/a/|b.txt");
    EXPECT_EQ(split(L"/a/b/"), L"/a/b/|");
    EXPECT_EQ(split(L"c:\\b"), L"c:\\|b");
    EXPECT_EQ(split(L"crash.txt"), L"|");
    EXPECT_EQ(split(L"/a/longer-than-it"), L"/a/|");
    EXPECT_EQ(split(L"/a/very/long/folder/x"), L"/a/very|x");
    EXPECT_EQ(split(nullptr), L"/a/very|x") << "nothing changes";
    SplitPath(L"/a/b", nullptr, 0, name, 8);
    SplitPath(L"/a/b", folder, 8, nullptr, 0);
}

// The sections that a host overrides are the ones written, and one that throws costs only itself.
TEST_F(Triage, AHostsOwnSectionsAreWritten) {
    class Own : public Probe {
      public:
        void WhatItIs(void* file) override { WriteText(file, "my own failure\r\n"); }
        void DumpCallstacksImpl(void* /*file*/) override { throw 1; }
        void DumpRingBuffers(void* file) override { WriteText(file, "my rings\r\n"); }
    } callback;
    callback.SetFooter("the end");
    EXPECT_EQ(TraceOf([&] { EXPECT_EQ(CaptureTriageData(L"crash.txt", 2, &callback, nullptr), 1); }),
              "<ERROR> <Nima.Common.System.OS> Failed to dump trace data, no trace data path was set.\r\n");
    const std::string log = ReadFile("crash.txt");
    EXPECT_EQ(
        log.substr(log.find("\r\n\r\n") + 4),
        "my own failure\r\nLoaded Modules\r\n\r\n\r\nCall Stacks\r\nmy rings\r\n\r\nAll Done!!\r\nthe end");
    EXPECT_EQ(log.substr(0, 17), "Crash Date/Time: ");
    struct stat status {};
    ASSERT_EQ(::stat("crash.txt", &status), 0);
    EXPECT_EQ(g_Synced[status.st_ino], status.st_size) << "all of it has reached the medium";
    WriteFile("crash.txt", "previous");
    EXPECT_EQ(CaptureTriageData(L"crash.txt", 2, &callback, nullptr), 1);
    EXPECT_EQ(ReadFile("crash.txt.1"), "previous");
    EXPECT_EQ(CaptureTriageData(nullptr, 2, &callback, nullptr), 0);
    EXPECT_EQ(CaptureTriageData(L"crash.txt", 2, nullptr, nullptr), 0);
    EXPECT_EQ(CaptureTriageData(L"no/such/folder/crash.txt", 2, &callback, nullptr), 0);
}

TEST_F(Triage, ASnapshotKeepsTheSeparatorOfItsFolder) {
    CapturedOutput([] { SysTraceConfigure(); });
    for (const bool shared : {false, true}) {
        EXPECT_EQ(
            GatherTriageSnapshot(L"./crash.txt", 1, 1, static_cast<long>(0xC0000005U), 0x77, 1, 2, 3, shared),
            1);
        const std::string log = ReadFile("crash.txt");
        EXPECT_EQ(
            CountOf(log, "Error Code: 493813\r\nFault Addr: 77\r\nCrash Type: 1\r\nExcpt Code: C0000005\r\n"),
            1U);
        const char* const sections[] = {"Crash Date/Time: ",
                                        "Error Code: ",
                                        "\r\n\r\nLoaded Modules\r\n\r\n",
                                        "\r\nCall Stacks\r\n\r\n",
                                        "\r\nRing Buffers (unformatted)\r\n",
                                        "\r\nBEGIN RING BUFFER DUMP\r\n\r\n",
                                        "\r\nEND RING BUFFER DUMP\r\n",
                                        "\r\nAll Done!!\r\n"};
        std::size_t at = 0;
        for (const char* section : sections) {
            at = log.find(section, at);
            ASSERT_NE(at, std::string::npos) << section;
        }
        EXPECT_EQ(log.substr(at), "\r\nAll Done!!\r\n");
    }
    EXPECT_TRUE(Exists("./\\SysTrace.bin"));
    EXPECT_EQ(GatherTriageSnapshot(L"bare.txt", 0, 0, 0, 0, 0, 0, 0, false), 1);
    EXPECT_TRUE(Exists("\\SysTrace.bin"));
    EXPECT_EQ(GatherTriageSnapshot(nullptr, 0, 0, 0, 0, 0, 0, 0, true), 0);
    EXPECT_EQ(GatherTriageSnapshot(L"/no/such/folder/x", 0, 0, 0, 0, 0, 0, 0, false), 0);
}

} // namespace Nima::Testing
