#include "Diagnostics/Guarded.h"
#include "Diagnostics/TraceImpl.h"
#include "Diagnostics/TraceRegistry.h"
#include "Diagnostics/TraceServicesImpl.h"
#include "platform/Cancellation.h"
#include "platform/Files.h"

#include <cerrno>
#include <cstdio>
#include <mutex>

#include <Diagnostics/TraceApi.h>
#include <Diagnostics/TraceServices.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

/// The streams of the last redirection, null for one that failed.
FILE* stdout_redirect = nullptr;
FILE* stderr_redirect = nullptr;

int ConfigureWith(_TraceConfig* config) {
    const StaticSlot<TraceServicesImpl>::Use services(gConfigHelper);
    return services ? services->Configure(config) : EINVAL;
}

void ReportFailedRedirection(const char* message) {
    const StaticSlot<NimaTrace>::Use tracer(_TraceFactory);
    if (tracer) {
        tracer->WriteErrorV("%s", message);
    }
}

} // namespace

TraceServicesImpl::~TraceServicesImpl() {
    const CancellationDelay delay;
    ReleaseHeld();
}

int TraceServicesImpl::Configure(_TraceConfig* config) {
    const std::lock_guard<LockStruct> guard(*this);
    return TraceDeviceCreate(config, &defaultLog_);
}

int TraceServicesImpl::ReleaseHeld() {
    const std::lock_guard<LockStruct> guard(*this);
    if (defaultLog_ == nullptr) {
        return EINVAL;
    }
    const int result = TraceDeviceRelease(defaultLog_);
    defaultLog_ = nullptr;
    return result;
}

int TraceServices::ConfigureDefaultLog(const wchar_t* fileName, unsigned int maxFileSize,
                                       unsigned int maxRollCount, bool append) {
    _TraceConfig config{};
    config.type = TRACE_DEVICE_ROLLING_LOG_FILE;
    config.name = kDefaultLogName;
    config.settings.rollingLogFile.maxFileSize = maxFileSize;
    config.settings.rollingLogFile.maxRollCount = maxRollCount;
    config.settings.rollingLogFile.fileName = fileName;
    config.settings.rollingLogFile.append = append;
    return ConfigureWith(&config);
}

int TraceServices::ConfigureDefaultLog() {
    _TraceConfig config{};
    config.type = TRACE_DEVICE_CONSOLE;
    config.name = kDefaultLogName;
    return ConfigureWith(&config);
}

int TraceServices::ReleaseDefaultLog() {
    const StaticSlot<TraceServicesImpl>::Use services(gConfigHelper);
    return services ? services->ReleaseHeld() : EINVAL;
}

void TraceServices::ShutdownTrace(bool flag) {
    GuardedCall([=] { TraceDeviceShutdownAll(flag); });
}

} // namespace Nima::Common::System::OS::Diagnostics

using namespace Nima::Common::System::OS::Diagnostics;

bool RedirectStdio(const wchar_t* standardOutput, const wchar_t* standardError) {
    stderr_redirect = _reopen_file_helper(standardError, L"w+", stderr);
    if (stderr_redirect == nullptr) {
        ReportFailedRedirection("Failed to redirect stderr!");
    }
    stdout_redirect = _reopen_file_helper(standardOutput, L"w+", stdout);
    if (stdout_redirect == nullptr) {
        ReportFailedRedirection("Failed to redirect stdout!");
        return false;
    }
    return stderr_redirect != nullptr;
}
