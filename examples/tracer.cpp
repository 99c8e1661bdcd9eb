#include <Diagnostics/NimaTrace.h>
#include <Diagnostics/TraceServices.h>
using namespace Nima::Common::System::OS::Diagnostics;

static NimaTrace trace("Scanner");

int main() {
    TraceServices::ConfigureDefaultLog(L"device.log", 1 << 20, 0, true);
    trace.WriteWarnV("jam at %d", 3);
}
