#pragma once

#include <gtest/gtest.h>

#include <Diagnostics/TraceApi.h>

namespace Nima::Testing {

inline _TraceConfig DeviceConfig(std::int32_t type, const wchar_t* name) {
    _TraceConfig config{};
    config.type = type;
    config.name = name;
    return config;
}

inline _TraceConfig LogConfig(const wchar_t* name, const wchar_t* file, unsigned size = 1 << 24,
                              unsigned rolls = 0, bool append = true) {
    _TraceConfig config = DeviceConfig(TRACE_DEVICE_ROLLING_LOG_FILE, name);
    config.settings.rollingLogFile = {size, rolls, file, append};
    return config;
}

inline TRACE_DEVICE_HANDLE Created(_TraceConfig config) {
    TRACE_DEVICE_HANDLE device = nullptr;
    EXPECT_EQ(TraceDeviceCreate(&config, &device), 0);
    return device;
}

inline TRACE_DEVICE_HANDLE CreatedQueue(const wchar_t* name) {
    return Created(DeviceConfig(TRACE_DEVICE_MEMORY_QUEUE, name));
}

} // namespace Nima::Testing
