#pragma once

#include <exception>
#include <utility>

namespace Nima::Common::System::OS::Diagnostics {

/// Inside a handler for anything: whether a thread is being cancelled. That is no exception of the language
/// and has to be passed on, since the runtime ends a process that swallows it.
inline bool IsCancellation() {
    return std::current_exception() == nullptr;
}

/// Runs what an exported function does and lets no exception out of it: any becomes the result given.
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
