#pragma once

namespace Nima::Common::System::OS::Diagnostics {

/// From now on a fork first takes the library's locks, and releases them in both processes, so that the child
/// can trace whatever the parent's other threads were doing. It waits at most 100 ms for all of them
/// together, and not at all for a lock that the forking thread itself holds. Locks that it did not get are
/// made free in the child. Called at load; the C library forgets the handlers when the library is unloaded.
void RegisterForkHandlers();

} // namespace Nima::Common::System::OS::Diagnostics
