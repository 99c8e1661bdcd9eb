#pragma once

#include "platform/OwnedLock.h"

#include <atomic>
#include <cstdint>

namespace Nima::Common::System::OS::Diagnostics {

/// Serialises all crash handling. Never destroyed, since the thread that ends the process holds it.
extern constinit OwnedLock g_CrashLock;

/// The crash semaphore, which nobody waits on, and the event that releases a process waiting for a debugger.
/// Both are built at load and ended at unload; the event is left alone if a thread still waits on it then.
class CrashHandles {
  public:
    static void BuildSemaphore();
    static void BuildEvent();
    static void EndSemaphore();
    static void EndEvent();
};

extern void* g_UMCrashSemaphore;
extern void* g_CrashedHandle;

/// Set by the first handling of a failure; cleared only in a forked child.
extern constinit std::atomic<bool> g_FatalConditionHandled;

/// In the child of a fork: if another thread was handling a crash, that was the parent's crash, and the lock
/// is free again. A hook that forks continues under the lock.
void RenewCrashLock();

/// Sets "DrelCrashContinue". Meant to be called from a debugger.
void ContinueAfterCrash();

} // namespace Nima::Common::System::OS::Diagnostics
