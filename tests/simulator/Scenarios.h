#pragma once

#include "tests/simulator/World.h"

#include <span>
#include <string_view>

namespace Simulator {

/// A way in which devices live.
struct Scenario {
    std::string_view name;
    void (*play)(World& world);
    /// Of the main set, so many folders in a thousand may fail: one in a hundred where readers prove what
    /// they say, more where doc/clock.md names cases that no reader can tell.
    int toleratedPerMille;
    /// The same of the second set.
    int toleratedOfSecond = 20;
};

std::span<const Scenario> AllScenarios();

} // namespace Simulator
