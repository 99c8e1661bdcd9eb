/// A log that stays small: when device.log is full it becomes device.log.1, and a fresh file begins.

#include <cstdio>

#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/RollingLogFile.h>
#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceServices.h>

using namespace Nima::Common::System::OS::Diagnostics;

namespace {

constexpr unsigned kMaxFileSize = 16384;
constexpr unsigned kBackups = 1;

int ConfigureLog() {
    const int result = TraceServices::ConfigureDefaultLog(L"device.log", kMaxFileSize, kBackups, true);
    TRACE_DEVICE_HANDLE log = nullptr;
    if (result != 0 || TraceDeviceFind(L"LogFile", &log) < 0) {
        return result;
    }
    // A roll renames the file of this name. Without it a full log would keep only its newest line.
    static_cast<CRollingLogFile*>(log)->SetFileName(L"device.log");
    TraceDeviceRelease(log);
    return 0;
}

} // namespace

int main() {
    const int result = ConfigureLog();
    if (result != 0) {
        std::fprintf(stderr, "cannot open device.log: error %d\n", result);
        return 1;
    }
    NimaTrace trace("Engine");
    for (int page = 1; page <= 400; ++page) {
        trace.WriteWarnV("page %d is late", page);
    }
    return 0;
}
