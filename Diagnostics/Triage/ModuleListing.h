#pragma once

#include <cstdint>

#include <Diagnostics/TriageCallback.h>

namespace Nima::Common::System::OS::Diagnostics {

/// A module of a process, as a snapshot describes it.
struct _MODULEENTRY32 {
    std::uint32_t size; ///< size of the record as the snapshot knows it, set before the first look-up
    std::uint32_t baseAddress;
    std::uint32_t baseSize;
    wchar_t name[256];
};

/// Where module snapshots come from. The platform's own source has none.
class ModuleSource {
  public:
    ModuleSource() = default;
    ModuleSource(const ModuleSource&) = delete;
    ModuleSource& operator=(const ModuleSource&) = delete;
    virtual ~ModuleSource() = default;
    /// Returns -1 for no snapshot.
    virtual int Create(int kind, int processId) = 0;
    /// Return nonzero if there was a module.
    virtual int First(int snapshot, _MODULEENTRY32* module) = 0;
    virtual int Next(int snapshot, _MODULEENTRY32* module) = 0;
    virtual void Close(int snapshot) = 0;
};

/// The same as `TriageCallback::ListProcessModules`, from a source given by the caller.
int ListModulesOf(ModuleSource& source, char* scratch, int size, int processId, OutputAdapter& adapter,
                  TriageCallback* callback);

} // namespace Nima::Common::System::OS::Diagnostics
