#pragma once

#include <atomic>

namespace Nima::Common::System::OS::Diagnostics {

/// The crash semaphore, which nobody waits on, and the event that lets a process go on that waits for a
/// debugger. Built at load, ended at unload, unless somebody is still waiting then.
class CrashHandles {
  public:
    static void BuildSemaphore();
    static void BuildEvent();
    static void EndSemaphore();
    static void EndEvent();
};

extern void* g_UMCrashSemaphore;
extern void* g_CrashedHandle;

/// Set by the first handling of a failure and never cleared.
extern constinit std::atomic<bool> g_FatalConditionHandled;

/// In the child of a fork: where another thread was handling a crash, that was its own process's, and the
/// lock is free again. A hook that forks goes on under the lock.
void RenewCrashLock();

/// Sets "DrelCrashContinue". Meant to be called from a debugger.
void ContinueAfterCrash();

} // namespace Nima::Common::System::OS::Diagnostics
