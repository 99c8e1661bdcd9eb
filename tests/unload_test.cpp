/// The library as a plug-in: loaded by name, used, and unloaded again.

#include "tests/support/Sandbox.h"

#include <dlfcn.h>

#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/TraceApi.h>

namespace Nima::Testing {

class Unloading : public Sandbox {};

TEST_F(Unloading, TheLastLinesReachTheFileAndNothingStays) {
    void* const library = ::dlopen(NIMA_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(library, nullptr) << ::dlerror();
    const auto create = reinterpret_cast<decltype(&TraceDeviceCreate)>(::dlsym(library, "TraceDeviceCreate"));
    const auto write = reinterpret_cast<decltype(&TraceDeviceWrite)>(::dlsym(library, "TraceDeviceWrite"));
    const auto release =
        reinterpret_cast<decltype(&TraceDeviceRelease)>(::dlsym(library, "TraceDeviceRelease"));
    const auto test = reinterpret_cast<decltype(&TraceTest)>(::dlsym(library, "TraceTest"));
    // TraceServices::ConfigureDefaultLog; nobody ever releases what its holder holds.
    const auto configure = reinterpret_cast<int (*)(const wchar_t*, unsigned, unsigned, bool)>(::dlsym(
        library, "_ZN4Nima6Common6System2OS11Diagnostics13TraceServices19ConfigureDefaultLogEPKwjjb"));
    ASSERT_TRUE(configure != nullptr);
    ASSERT_TRUE(create != nullptr && write != nullptr && release != nullptr && test != nullptr);
    _TraceConfig config{};
    config.type = TRACE_DEVICE_ROLLING_LOG_FILE;
    config.name = L"LogFile";
    config.settings.rollingLogFile = {1 << 20, 0, L"log", true};
    ASSERT_EQ(configure(L"log", 1 << 20, 0, true), 0);
    TRACE_DEVICE_HANDLE log = nullptr;
    ASSERT_EQ(create(&config, &log), 0);
    write(log, "the last line", -1);
    test(0, "x");
    release(log);
    EXPECT_EQ(CountOf(ReadFile("log"), "the last line"), 0U) << "still in the buffer";
    ASSERT_EQ(::dlclose(library), 0);
    EXPECT_EQ(CountOf(ReadFile("log"), "the last line\r\n"), 1U);
    EXPECT_EQ(::dlopen(NIMA_LIBRARY, RTLD_NOW | RTLD_NOLOAD), nullptr);
    InGoodChild([] {}); // a fork calls nothing that is gone
}

} // namespace Nima::Testing
