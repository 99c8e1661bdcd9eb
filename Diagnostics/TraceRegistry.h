#pragma once

#include <map>
#include <string>

#include <Diagnostics/Lock.h>
#include <Diagnostics/TraceDevice.h>

namespace Nima::Common::System::OS::Diagnostics {

/// The table of named devices, in the order of plain character comparison. The table holds one reference
/// on each device in it, every handle given out one more.
using TraceMap = std::map<std::wstring, ITraceDevice*>;

/// Neither the table nor its lock is ever torn down: the default log is given back after every other object
/// of the library has gone, and its last lines reach the file by way of the table.
TraceMap& Devices();
extern constinit StaticLockStruct g_TraceMapLock;

// The first three expect the caller to hold `g_TraceMapLock`.

/// As `TraceDeviceFind`.
int _InternalDeviceFind(const wchar_t* name, ITraceDevice** device);
/// Registers a device. Its new reference count; -2, with nothing changed, if the name is taken or the device
/// is null.
int _InternalTraceDeviceRegister(const std::wstring& name, ITraceDevice* device);
/// Removes a device and gives the table's reference back. How many remain; -1 for an unknown name.
int _InternalTraceDeviceUnregister(const std::wstring& name);

/// What `TraceDeviceCreate` does but for the tracers: `*created` tells whether they have to be bound anew.
int CreateOrReinitialise(_TraceConfig* config, ITraceDevice** device, bool* created);

/// Closes every device in the order of their names; all stay registered.
void TraceDeviceShutdownAll(bool flag);

} // namespace Nima::Common::System::OS::Diagnostics
