#include "Diagnostics/TraceRegistry.h"

#include "Diagnostics/Devices/Console.h"
#include "Diagnostics/Guarded.h"
#include "ini/IniFile.h"

#include <cerrno>
#include <memory>
#include <mutex>
#include <new>

#include <Diagnostics/MemoryQueue.h>
#include <Diagnostics/RollingLogFile.h>
#include <Diagnostics/TraceApi.h>

namespace Nima::Common::System::OS::Diagnostics {

int _InternalDeviceFind(const wchar_t* name, ITraceDevice** device) {
    *device = nullptr;
    const auto entry = Devices().find(name);
    if (entry == Devices().end()) {
        return -1;
    }
    *device = entry->second;
    return entry->second->AddRef();
}

int _InternalTraceDeviceRegister(const std::wstring& name, ITraceDevice* device) {
    if (device == nullptr || !Devices().emplace(name, device).second) {
        return -2;
    }
    return device->AddRef();
}

int _InternalTraceDeviceUnregister(const std::wstring& name) {
    const auto entry = Devices().find(name);
    if (entry == Devices().end()) {
        return -1;
    }
    ITraceDevice* device = entry->second;
    Devices().erase(entry);
    return device->Release();
}

namespace {

std::unique_ptr<CBaseTraceDevice> BuildDevice(std::int32_t type) {
    switch (type) {
        case TRACE_DEVICE_ROLLING_LOG_FILE:
            return std::make_unique<CRollingLogFile>();
        case TRACE_DEVICE_MEMORY_QUEUE:
            return std::make_unique<CMemoryQueue>();
        case TRACE_DEVICE_CONSOLE:
            return std::make_unique<CConsole>();
        default:
            return nullptr;
    }
}

} // namespace

int CreateOrReinitialise(_TraceConfig* config, ITraceDevice** device, bool* created) {
    *created = false;
    if (config == nullptr || config->type == 0 || config->name == nullptr || device == nullptr) {
        return EINVAL;
    }
    const std::lock_guard guard(g_TraceMapLock);
    if (_InternalDeviceFind(config->name, device) != -1) {
        GuardedCall([=] { (*device)->Init(config); }); // whatever the result
        return 0;
    }
    auto fresh = BuildDevice(config->type);
    if (fresh == nullptr) {
        return EINVAL;
    }
    fresh->Init(config);
    const int failure = fresh->IsOpen() ? 0 : errno;
    fresh->SetName(config->name);
    if (failure != 0) {
        return failure;
    }
    _InternalTraceDeviceRegister(fresh->GetName(), fresh.get());
    fresh->AddRef();
    *device = fresh.release();
    *created = true;
    return 0;
}

void TraceDeviceShutdownAll(bool /*flag*/) {
    const std::lock_guard guard(g_TraceMapLock);
    for (const auto& [name, device] : Devices()) {
        device->Close();
    }
}

} // namespace Nima::Common::System::OS::Diagnostics

using namespace Nima::Common::System::OS::Diagnostics;

int TraceDeviceFind(const wchar_t* name, TRACE_DEVICE_HANDLE* device) {
    if (device == nullptr) {
        return -1;
    }
    *device = nullptr;
    if (name == nullptr) {
        return -1;
    }
    return Guarded(-1, [=] {
        const std::lock_guard guard(g_TraceMapLock);
        return _InternalDeviceFind(name, device);
    });
}

int TraceDeviceRelease(TRACE_DEVICE_HANDLE device) {
    return Guarded(ENOMEM, [=] {
        const std::lock_guard guard(g_TraceMapLock);
        if (device == nullptr) {
            return EINVAL;
        }
        const std::wstring name = device->GetName(); // before anything changes, since it takes memory
        const int remaining = device->Release();
        return remaining == 1 ? _InternalTraceDeviceUnregister(name) : remaining;
    });
}

void TraceDeviceFlushAll(bool final) {
    GuardedCall([=] {
        const std::lock_guard guard(g_TraceMapLock);
        for (const auto& [name, device] : Devices()) {
            device->Flush(final);
        }
    });
}

void CreateTraceFilter(const wchar_t* iniPath, const wchar_t* section) {
    if (iniPath == nullptr || section == nullptr) {
        return;
    }
    GuardedCall([=] {
        CIniFile ini;
        if (ini.Open(iniPath)) {
            ini.CopySection(section);
        }
    });
}
