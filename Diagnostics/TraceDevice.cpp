#include "Diagnostics/Guarded.h"
#include "Diagnostics/TraceFormat.h"
#include "platform/Clock.h"
#include "platform/Handles.h"

#include <cstring>
#include <utility>

#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceDevice.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constinit std::atomic<std::int32_t> g_DeviceCount{0};

int CallersPriority() {
    return _get_thread_priority_helper(nullptr);
}

} // namespace

CBaseTraceDevice::CBaseTraceDevice() : counterFrequency_(CStopwatch::sFrequency) {
    g_DeviceCount.fetch_add(1);
}

CBaseTraceDevice::~CBaseTraceDevice() {
    g_DeviceCount.fetch_sub(1);
}

bool CBaseTraceDevice::GetEnabled() {
    return enabled_.load(std::memory_order_relaxed);
}

void CBaseTraceDevice::SetEnabled(bool enabled) {
    enabled_.store(enabled, std::memory_order_relaxed);
}

int CBaseTraceDevice::AddRef() {
    return references_.fetch_add(1) + 1;
}

int CBaseTraceDevice::Release() {
    const std::int32_t before = references_.fetch_sub(1);
    if (before == 1) {
        delete this;
    }
    return before - 1;
}

std::wstring CBaseTraceDevice::GetName() {
    return name_;
}

void CBaseTraceDevice::SetName(std::wstring name) {
    name_ = std::move(name);
}

void CBaseTraceDevice::Flush(bool /*final*/) {}

const char* CBaseTraceDevice::GetTimerType() const {
    switch (timerType_) {
        case 1:
            return "rdtsc";
        case 2:
            return "asic";
        default:
            return "qpc";
    }
}

int CBaseTraceDevice::WriteHeaderDateTime() {
    _get_local_time_helper(&lastLocalTime_);
    return ComposeDateHeader(headerBuffer_, kHeaderSize, lastLocalTime_, CurrentThreadId(),
                             CallersPriority());
}

int CBaseTraceDevice::WriteHeaderCounter() {
    _LARGE_INTEGER counter;
    _query_performance_counter_helper(&counter);
    lastCounter_ = counter.QuadPart;
    return ComposeCounterHeader(headerBuffer_, kHeaderSize, lastCounter_, CurrentThreadId(),
                                CallersPriority());
}

int CBaseTraceDevice::WriteHeader(long long counter, long threadId) {
    return ComposeCounterHeader(headerBuffer_, kHeaderSize, counter, static_cast<std::uint32_t>(threadId),
                                CallersPriority());
}

int CBaseTraceDevice::WriteHeader(_SYSTEMTIME time, long threadId) {
    return ComposeDateHeader(headerBuffer_, kHeaderSize, time, static_cast<std::uint32_t>(threadId),
                             CallersPriority());
}

} // namespace Nima::Common::System::OS::Diagnostics

using namespace Nima::Common::System::OS::Diagnostics;

int GetTraceDeviceCount(void) {
    return g_DeviceCount.load();
}

int TraceDeviceWrite(TRACE_DEVICE_HANDLE device, const char* text, int length) {
    if (device == nullptr) {
        return 1;
    }
    if (length == 0) {
        return 0;
    }
    if (text == nullptr) {
        return 1;
    }
    GuardedCall([=] {
        const int count = length < 0 ? static_cast<int>(std::strlen(text)) : length;
        device->WriteData(reinterpret_cast<unsigned char*>(const_cast<char*>(text)), count);
    });
    return 1;
}

int TraceDeviceWriteRaw(TRACE_DEVICE_HANDLE device, const void* bytes, int length) {
    if (device == nullptr) {
        return 1;
    }
    if (length == 0) {
        return 0;
    }
    GuardedCall([=] { device->WriteDataRaw(static_cast<unsigned char*>(const_cast<void*>(bytes)), length); });
    return 1;
}

int TraceDeviceReInit(_TraceConfig* config, TRACE_DEVICE_HANDLE device) {
    if (device == nullptr) {
        return 0;
    }
    GuardedCall([=] { device->Init(config); });
    return 1;
}

int TraceDeviceFlush(TRACE_DEVICE_HANDLE device) {
    if (device == nullptr) {
        return 0;
    }
    GuardedCall([=] { device->Flush(); });
    return 1;
}
