#pragma once

#include <utility>

#include <cxxabi.h>

namespace Nima::Common::System::OS::Diagnostics {

/// Runs what an exported function does and lets no exception out of it: any becomes the result given. A
/// thread's cancellation is passed on, since the language runtime ends a process that swallows it; the
/// runtime binds the handler's reference to no object then, which the check for null references must not trip
/// over.
template <class Result, class Action>
__attribute__((no_sanitize("null"))) Result Guarded(Result onException, Action&& action) {
    try {
        return std::forward<Action>(action)();
    } catch (abi::__forced_unwind&) {
        throw;
    } catch (...) {
        return onException;
    }
}

template <class Action>
void GuardedCall(Action&& action) {
    Guarded(0, [&action] {
        std::forward<Action>(action)();
        return 0;
    });
}

} // namespace Nima::Common::System::OS::Diagnostics
