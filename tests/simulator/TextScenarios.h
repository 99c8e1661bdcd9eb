#pragma once

#include "tests/simulator/Host.h"
#include "tests/simulator/World.h"

#include <functional>
#include <memory>

namespace Simulator {

/// Lives of hosts one after the other, from each end to the next beginning. Every host works at a pace of its
/// own.
struct Lives {
    LogSettings settings;
    bool logEach = false; ///< a log of its own for each
    int fewest = 1;
    int most = 1;
    int leastWrites = 50;
    int mostWrites = 700;
    /// Changes the settings for each host.
    std::function<void(LogSettings&)> configure = {};
    /// How a host ends; regularly without one.
    std::function<void(Host&)> end = {};
    /// What happens between two hosts; a while without one.
    std::function<void()> between = {};
    /// What happens several times during a life.
    std::function<void(Host&)> meanwhile = {};
    Pace (*pace)(Random& random) = Pace::Any;
    /// What a host writes to beside its log.
    std::function<void(Host&)> equip = {};
};

void Live(World& world, const Lives& lives);

/// Two hosts at the same time, with these settings, and now and then with the same thread identifiers.
void LiveTogether(World& world, const LogSettings& first, const LogSettings& second,
                  const std::function<void(Host&)>& equip = {}, const std::function<void()>& meanwhile = {});

} // namespace Simulator
