#pragma once

namespace Nima::Common::System::OS::Diagnostics {

/// From now on a fork takes the library's locks first and gives them back in both processes, so that the
/// child can trace whatever the parent's other threads were doing. It waits 100 ms for all of them at most,
/// and not at all for those under which the host's code runs; what it did not get is made free in the child.
/// Called at load; the C library forgets the handlers when the library is unloaded.
void RegisterForkHandlers();

} // namespace Nima::Common::System::OS::Diagnostics
