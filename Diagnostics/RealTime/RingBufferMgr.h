#pragma once

#include "Diagnostics/RealTime/RingBuffer.h"
#include "catalogue/OwnEvents.h"

#include <atomic>
#include <memory>
#include <vector>

#include <Diagnostics/RingBufferApi.h>

namespace Nima::Common::System::OS::Diagnostics {

/// The codes of the library's own events, recorded in ring 5; the catalogue lists the words after the code.
enum _OSDiagnosticEvents : int {
    kModuleListingStarts = Catalogue::CodeOf(Catalogue::OwnRingEvent::kModuleListingStarts),
    kModuleSnapshotFailed = Catalogue::CodeOf(Catalogue::OwnRingEvent::kModuleSnapshotFailed),
    kModuleListingEnds = Catalogue::CodeOf(Catalogue::OwnRingEvent::kModuleListingEnds),
    kFirstModuleFailed = Catalogue::CodeOf(Catalogue::OwnRingEvent::kFirstModuleFailed),
    kFaultInDiagnostics = Catalogue::CodeOf(Catalogue::OwnRingEvent::kFaultInDiagnostics),
    kEventLogCallbackCalled = Catalogue::CodeOf(Catalogue::OwnRingEvent::kEventCallback)
};

/// Builds the rings over the shared segment, once per process. Rings, storage and segment stay to the very
/// end of the process, since exit handlers and late threads still write and dump.
class CRingBufferMgr {
  public:
    CRingBufferMgr();
    CRingBufferMgr(const CRingBufferMgr&) = delete;
    CRingBufferMgr& operator=(const CRingBufferMgr&) = delete;

    /// Returns 0, or 22 for an index out of range.
    int GetRingBuffer(int index, CRingBuffer** out) const;
    /// Returns 0, or 22 for an unknown name.
    int GetRingBufferId(const wchar_t* name, int* id) const;

  private:
    void Init();

    RingBufferData* recordsBase_ = nullptr;
    std::vector<std::unique_ptr<CRingBuffer>> rings_;
    void* handle_;
    void* view_ = nullptr;
};

/// The process's manager, built on the first call.
CRingBufferMgr& GetRingBufferMgr();

/// Guards the building of the manager.
extern constinit StaticLockStruct g_RingBufferMgrLock;

/// In the child of a fork: makes the locks of all rings free. Emptying or copying a ring leaves nothing
/// harmful half done.
void RenewRingLocks();

/// Ring 5; null until the manager is built.
extern constinit std::atomic<CRingBuffer*> g_OSRing;

/// Records an event of the library's own. Does not build the manager: until it is built, the event is dropped
/// and the result is 22.
int RecordInternalDiagnosticEvent(_OSDiagnosticEvents code, int a, int b, int c, int d);

/// Writes this process's rings as text into an open file, formatting in `buffer`.
void _DumpRingBuffersUnformatted(char* buffer, int bufferLength, void* file);

} // namespace Nima::Common::System::OS::Diagnostics
