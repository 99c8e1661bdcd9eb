#pragma once

#include <Diagnostics/Export.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Sets up the default log: the device named "LogFile", which every tracer writes to.
///
///     TraceServices::ConfigureDefaultLog(L"device.log", 1 << 20, 0, true);
///
/// All functions may be called from any thread. If a host configures a log, writes, and returns from `main`
/// without flushing, every line is in the file.
class NIMA_DIAGNOSTICS_API TraceServices {
  public:
    /// Makes the default log a rolling log file of at most `maxFileSize` bytes, give or take a buffer and a
    /// line. With a `maxRollCount` of 0 a full file is overwritten from its start. With more, it is kept as a
    /// backup, provided that the device has been told its name (`CRollingLogFile::SetFileName`). Without
    /// `append` an existing file is treated as full. With a `maxFileSize` of 0, or from 2^31 on, every line
    /// finds the file full. A null file name counts as empty. Two processes that use one path overwrite each
    /// other's lines.
    ///
    /// If there is a default log already, it takes the new settings and keeps its class, and one more
    /// reference to it is held: it then outlives a `ReleaseDefaultLog`. Returns 0 or an error number, as
    /// `TraceDeviceCreate` does.
    static int ConfigureDefaultLog(const wchar_t* fileName, unsigned int maxFileSize,
                                   unsigned int maxRollCount, bool append);
    /// Makes the default log the console. An existing default log keeps its class. Lines are lost without any
    /// report once the host has printed to standard output with `wprintf`.
    static int ConfigureDefaultLog();
    /// Releases the held reference. Returns how many references to the device remain (0: the device is gone;
    /// each bound tracer holds one); 22 (EINVAL) if none is held.
    static int ReleaseDefaultLog();
    /// Closes every registered device. They stay registered until a creation under their name reopens them.
    /// Until then a log file drops what is written to it, while a console continues to print and a memory
    /// queue to collect. The flag is not used.
    static void ShutdownTrace(bool flag);
};

} // namespace Nima::Common::System::OS::Diagnostics
