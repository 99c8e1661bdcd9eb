/// The library as a plug-in: loaded by name, used, and unloaded again.

#include "tests/support/Sandbox.h"

#include <dlfcn.h>

#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/TraceApi.h>

namespace Nima::Testing {

class Unloading : public Sandbox {};

namespace {

template <class Function>
Function* Found(void* library, const char* name) {
    void* const function = ::dlsym(library, name);
    EXPECT_NE(function, nullptr) << name;
    return reinterpret_cast<Function*>(function);
}

} // namespace

TEST_F(Unloading, TheLastLinesReachTheFileAndNothingStays) {
    void* const library = ::dlopen(NIMA_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << ::dlerror();
    // TraceServices::ConfigureDefaultLog; nobody ever releases what its holder holds.
    ASSERT_EQ(
        Found<int(const wchar_t*, unsigned, unsigned, bool)>(
            library, "_ZN4Nima6Common6System2OS11Diagnostics13TraceServices19ConfigureDefaultLogEPKwjjb")(
            L"log", 1 << 20, 0, true),
        0);
    TRACE_DEVICE_HANDLE log = nullptr;
    ASSERT_GT(Found<decltype(TraceDeviceFind)>(library, "TraceDeviceFind")(L"LogFile", &log), 0);
    Found<decltype(TraceDeviceWrite)>(library, "TraceDeviceWrite")(log, "the last line", -1);
    Found<decltype(TraceTest)>(library, "TraceTest")(0, "x");
    Found<decltype(TraceDeviceRelease)>(library, "TraceDeviceRelease")(log);
    EXPECT_EQ(CountOf(ReadFile("log"), "the last line"), 0U) << "still in the buffer";
    ASSERT_EQ(::dlclose(library), 0);
    EXPECT_EQ(CountOf(ReadFile("log"), "the last line\r\n"), 1U);
    EXPECT_EQ(::dlopen(NIMA_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
    InGoodChild([] {}); // a fork calls nothing that is gone
}

} // namespace Nima::Testing
