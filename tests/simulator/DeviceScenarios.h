#pragma once

#include "tests/simulator/World.h"

namespace Simulator {

/// Devices that have a binary trace or rings beside their logs, and crash.
void Traces(World& world);
void TraceKills(World& world);
void TraceRestarts(World& world);
void SharedTrace(World& world);
void Rings(World& world);
void SlowRings(World& world);
void RingRestarts(World& world);
void CrashLogs(World& world);
void Everything(World& world);

} // namespace Simulator
