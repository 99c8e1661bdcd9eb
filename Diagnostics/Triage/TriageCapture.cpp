#include "Diagnostics/Triage/TriageCapture.h"

#include "Diagnostics/Files/DumpFile.h"
#include "Diagnostics/Guarded.h"
#include "Diagnostics/TraceImpl.h"
#include "Diagnostics/Triage/StandardTriageCallback.h"
#include "catalogue/Files.h"
#include "platform/Cancellation.h"
#include "platform/Files.h"
#include "platform/Text.h"

#include <algorithm>
#include <cwchar>
#include <memory>
#include <new>

#include <Diagnostics/RealTimeTraceApi.h>
#include <Diagnostics/TriageCallback.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr int kPathSize = 255;

void TraceError(const char* message) {
    const StaticSlot<NimaTrace>::Use tracer(_TraceFactory);
    if (tracer) {
        tracer->WriteErrorV("%s", message);
    }
}

void DumpTraceInto(const wchar_t* folder, unsigned long backups) {
    if (folder == nullptr) {
        TraceError("Failed to dump trace data, no trace data path was set.\r\n");
        return;
    }
    constexpr std::size_t kBufferBytes = 1024;
    const std::unique_ptr<wchar_t[]> path(new (std::nothrow) wchar_t[kBufferBytes / sizeof(wchar_t)]());
    if (path == nullptr) {
        TraceError("Failed to dump trace data, not enough memory to allocate a file path.\r\n");
        return;
    }
    // A path that is too long would be cut to the name of something else.
    if (_snwprintf_s_helper(path.get(), kPathSize, kPathSize, L"%ls\\%ls", folder,
                            Catalogue::kSysTraceDump.wide) >= 1) {
        DumpSysTrace(path.get(), static_cast<int>(backups));
    }
}

} // namespace

int CaptureTriageData(const wchar_t* crashLogPath, unsigned long backups, TriageCallback* callback,
                      const wchar_t* triageFolder) {
    GuardedCall([=] { DumpTraceInto(triageFolder, backups); });
    if (crashLogPath == nullptr || callback == nullptr) {
        return 0;
    }
    const CancellationDelay delay;
    return Guarded(0, [=] {
        void* const file = _CreateFileAndRollBackup(crashLogPath, static_cast<int>(backups));
        if (!IsValidHandle(file)) {
            return 0;
        }
        const HandleGuard guard(file);
        GuardedCall([=] { callback->DoCrashHeader(file); });
        GuardedCall([=] { callback->DumpCallstacks(file); });
        GuardedCall([=] { callback->DumpRingBuffers(file); });
        GuardedCall([=] { callback->DoCrashFooter(file); });
        _flush_file_helper(file);
        return 1;
    });
}

void SplitPath(const wchar_t* path, wchar_t* folder, int folderSize, wchar_t* name, int nameSize) {
    if (path == nullptr) {
        return;
    }
    const bool wantsFolder = folder != nullptr && folderSize > 0;
    const bool wantsName = name != nullptr && nameSize > 0;
    if (wantsFolder) {
        std::wmemset(folder, L'\0', static_cast<std::size_t>(folderSize));
    }
    if (wantsName) {
        std::wmemset(name, L'\0', static_cast<std::size_t>(nameSize));
    }
    std::size_t end = std::wcslen(path);
    while (end > 0 && path[end - 1] != L'/' && path[end - 1] != L'\\') {
        --end;
    }
    if (end == 0) {
        return;
    }
    if (wantsFolder) {
        std::wmemcpy(folder, path, std::min(end, static_cast<std::size_t>(folderSize) - 1));
    }
    const std::size_t rest = std::wcslen(path + end);
    if (wantsName && rest < static_cast<std::size_t>(nameSize)) {
        std::wmemcpy(name, path + end, rest);
    }
}

namespace {

int CaptureWith(TriageCallback& callback, const wchar_t* path, std::uint32_t backups, int type, long code,
                long address) {
    callback.SetExceptionInfo(type, code, address);
    wchar_t folder[kPathSize] = {};
    wchar_t name[kPathSize] = {};
    SplitPath(path, folder, kPathSize, name, kPathSize);
    return CaptureTriageData(path, backups, &callback, folder);
}

} // namespace

} // namespace Nima::Common::System::OS::Diagnostics

using namespace Nima::Common::System::OS::Diagnostics;

int GatherTriageSnapshot(const wchar_t* path, uint32_t backups, int type, long code, long address,
                         uint32_t /*ignored1*/, uint32_t /*ignored2*/, uint32_t /*ignored3*/, bool shared) {
    return Guarded(0, [=] {
        if (shared) {
            return CaptureWith(g_StandardExceptionTriageCallback.get(), path, backups, type, code, address);
        }
        const auto own = std::make_unique<StandardExceptionTriageCallback>();
        own->Init();
        return CaptureWith(*own, path, backups, type, code, address);
    });
}
