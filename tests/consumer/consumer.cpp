#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceServices.h>

using namespace Nima::Common::System::OS::Diagnostics;

int main() {
    if (TraceServices::ConfigureDefaultLog(L"consumer.log", 1 << 20, 0, true) != 0) {
        return 1;
    }
    NimaTrace trace("Consumer");
    trace.WriteWarnV("built against the %s tree", "installed");
    return GetTraceDeviceCount() == 1 ? 0 : 2;
}
