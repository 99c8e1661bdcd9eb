#pragma once

#include <map>
#include <string>

#include <Diagnostics/Lock.h>
#include <Diagnostics/TraceDevice.h>

namespace Nima::Common::System::OS::Diagnostics {

/// The table of named devices, in the order of plain character comparison. The table holds one reference to
/// each device in it, and every handle given out holds one more.
using TraceMap = std::map<std::wstring, ITraceDevice*>;

/// Neither the table nor its lock is ever destroyed: the default log is released after every other object of
/// the library has gone, and its last lines reach the file through the table.
TraceMap& Devices();
extern constinit StaticLockStruct g_TraceMapLock;

// The caller of the first three must hold `g_TraceMapLock`.

/// The same as `TraceDeviceFind`.
int _InternalDeviceFind(const wchar_t* name, ITraceDevice** device);
/// Registers a device. Returns its new reference count; -2, with nothing changed, if the name is taken or the
/// device is null.
int _InternalTraceDeviceRegister(const std::wstring& name, ITraceDevice* device);
/// Removes a device and releases the table's reference. Returns how many remain; -1 for an unknown name.
int _InternalTraceDeviceUnregister(const std::wstring& name);

/// What `TraceDeviceCreate` does, except for the tracers: `*created` says whether they must be rebound.
int CreateOrReinitialise(_TraceConfig* config, ITraceDevice** device, bool* created);

/// Closes every device in the order of their names; all stay registered.
void TraceDeviceShutdownAll(bool flag);

} // namespace Nima::Common::System::OS::Diagnostics
