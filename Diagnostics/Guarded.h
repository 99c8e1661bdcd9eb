#pragma once

#include <exception>
#include <utility>

namespace Nima::Common::System::OS::Diagnostics {

/// Inside a catch-all handler: whether a thread is being cancelled. A cancellation is no C++ exception and
/// must be passed on, since the runtime ends a process that swallows it.
inline bool IsCancellation() {
    return std::current_exception() == nullptr;
}

/// Runs the work of an exported function and lets no exception out of it: any exception becomes the given
/// result.
template <class Result, class Action>
Result Guarded(Result onException, Action&& action) {
    try {
        return std::forward<Action>(action)();
    } catch (...) {
        if (IsCancellation()) {
            throw;
        }
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
