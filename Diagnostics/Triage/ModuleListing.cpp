#include "Diagnostics/Triage/ModuleListing.h"

#include "Diagnostics/Guarded.h"
#include "Diagnostics/RealTime/RingBufferMgr.h"
#include "Diagnostics/TraceImpl.h"
#include "Diagnostics/Triage/OutputAdapter.h"
#include "catalogue/Failures.h"
#include "catalogue/Marks.h"
#include "catalogue/Text.h"
#include "platform/Modules.h"
#include "platform/Text.h"

#include <cerrno>
#include <cstring>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr int kSnapshotOfModules = 2;
constexpr int kNoSnapshot = -1;
constexpr std::uint32_t kModuleRecordSize = 2076;

class PlatformModules final : public ModuleSource {
  public:
    int Create(int kind, int processId) override {
        return _create_toolhelp32_snapshot_helper(kind, processId);
    }
    int First(int snapshot, _MODULEENTRY32* /*module*/) override {
        return _module32_first_helper(snapshot, 0);
    }
    int Next(int snapshot, _MODULEENTRY32* /*module*/) override { return _module32_next_helper(snapshot, 0); }
    void Close(int snapshot) override { _close_snapshot_helper(snapshot); }
};

bool Holds(const _MODULEENTRY32& module, std::uint32_t address) {
    return address >= module.baseAddress && address - module.baseAddress <= module.baseSize;
}

bool WriteModule(char* scratch, int size, const _MODULEENTRY32& module, OutputAdapter& adapter) {
    const auto room = static_cast<std::size_t>(size);
    std::memset(scratch, 0, room);
    _snprintf_s_helper(scratch, room, room, "0x%08X 0x%08X 0x%08X %ls\r\n", module.baseAddress,
                       module.baseSize, module.baseAddress + module.baseSize, module.name);
    return _WriteSingleLineOutput(adapter, scratch) != 0;
}

int WriteModules(ModuleSource& source, int snapshot, char* scratch, int size, OutputAdapter& adapter,
                 TriageCallback* callback) {
    _MODULEENTRY32 module{};
    module.size = kModuleRecordSize;
    const int first = source.First(snapshot, &module);
    if (first == 0) {
        RecordInternalDiagnosticEvent(kFirstModuleFailed, errno, 0, 0, 0);
        return 0;
    }
    const bool seeksFault = callback != nullptr && callback->failureType() == Catalogue::kNativeException;
    _WriteSingleLineOutput(adapter, "BaseAddr   BaseSize   Base+Size  Module\r\n");
    do {
        if (seeksFault && Holds(module, static_cast<std::uint32_t>(callback->faultAddress()))) {
            callback->RecordFaultingModule(module);
        }
        if (!WriteModule(scratch, size, module, adapter)) {
            break;
        }
    } while (source.Next(snapshot, &module) != 0);
    return first;
}

} // namespace

int ListModulesOf(ModuleSource& source, char* scratch, int size, int processId, OutputAdapter& adapter,
                  TriageCallback* callback) {
    int snapshot = kNoSnapshot;
    const auto close = [&] {
        if (snapshot != kNoSnapshot) {
            source.Close(snapshot);
        }
    };
    try {
        RecordInternalDiagnosticEvent(kModuleListingStarts, 2, 0, 0, 0);
        snapshot = source.Create(kSnapshotOfModules, processId);
        if (snapshot == kNoSnapshot) {
            RecordInternalDiagnosticEvent(kModuleSnapshotFailed, errno, 0, 0, 0);
            return 0;
        }
        const int first = WriteModules(source, snapshot, scratch, size, adapter, callback);
        close();
        if (first != 0) {
            RecordInternalDiagnosticEvent(kModuleListingEnds, 0, 0, 0, 0);
        }
        return first;
    } catch (...) {
        if (IsCancellation()) {
            throw;
        }
        _WriteSingleLineOutput(
            adapter,
            Catalogue::Concatenated(Catalogue::kFaultInCrashLog, " getting list of modules.").data());
        GuardedCall(close);
        RecordInternalDiagnosticEvent(kFaultInDiagnostics, _get_exception_code_helper(), 0, 0, 0);
        return 0;
    }
}

int TriageCallback::ListProcessModules(char* scratch, int size, int processId, OutputAdapter& adapter,
                                       TriageCallback* callback) {
    PlatformModules modules;
    return ListModulesOf(modules, scratch, size, processId, adapter, callback);
}

int TriageCallback::ListProcessModules(char* scratch, int size, int processId, OutputAdapter& adapter) {
    return ListProcessModules(scratch, size, processId, adapter, nullptr);
}

void TriageCallback::RecordFaultingModule(_MODULEENTRY32& module) const {
    const StaticSlot<NimaTrace>::Use tracer(_TraceFactory);
    if (tracer) {
        tracer->WriteFatalV("FATAL ERROR!!! Found Potential Fault: exception 0x%8.8x in %ls @ 0x%8.8x!",
                            static_cast<std::uint32_t>(exceptionCode_), module.name,
                            static_cast<std::uint32_t>(faultAddress_));
    }
}

} // namespace Nima::Common::System::OS::Diagnostics
