#include "Diagnostics/Guarded.h"
#include "Diagnostics/TraceImpl.h"
#include "Diagnostics/TraceLevel.h"
#include "Diagnostics/TraceRegistry.h"
#include "platform/Clock.h"
#include "platform/Identifiers.h"

#include <cerrno>
#include <cstring>

#include <Diagnostics/TraceApi.h>

using namespace Nima::Common::System::OS::Diagnostics;

int TraceDeviceCreate(_TraceConfig* config, TRACE_DEVICE_HANDLE* device) {
    bool created = false;
    const int result = Guarded(ENOMEM, [&] { return CreateOrReinitialise(config, device, &created); });
    if (created) {
        GuardedCall([] { InitTracers(); });
    }
    return result;
}

void TraceSetEffectiveLevel(int level) {
    g_EffectiveTraceLevel.store(level);
}

int TraceGetEffectiveLevel(void) {
    return g_EffectiveTraceLevel.load(std::memory_order_relaxed);
}

void TraceTest(int /*ignored*/, const char* text) {
    const StaticSlot<NimaTrace>::Use tracer(_TraceFactory);
    if (!tracer) {
        return;
    }
    if (text == nullptr) {
        text = "(null)";
    }
    tracer->WriteFatalV("Trace Test of FATAL level %s", text);
    tracer->WriteErrorV("Trace Test of ERROR level %s", text);
    tracer->WriteWarnV("Trace Test of WARN level %s", text);
    tracer->WriteInfoV("Trace Test of INFO level %s", text);
    tracer->WritePerfV("Trace Test of PERF level %s", text);
    tracer->WriteDebugV("Trace Test of DEBUG level %s", text);
}

void GetRTSCDFrequency(int64_t* frequency) {
    if (frequency != nullptr) {
        *frequency = g_TSFrequency;
    }
}

void GetRTSCDValue(int64_t* counter) {
    if (counter != nullptr) {
        _LARGE_INTEGER now;
        _query_performance_counter_helper(&now);
        *counter = now.QuadPart;
    }
}

int CreateUUID(void* buffer, int size) {
    if (size != static_cast<int>(sizeof(_GUID)) || buffer == nullptr) {
        return EINVAL;
    }
    _GUID identifier;
    const int result = _create_guid_helper(&identifier);
    std::memcpy(buffer, &identifier, sizeof(identifier));
    return result;
}
