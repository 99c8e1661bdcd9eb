#pragma once

#include "tests/simulator/RingSegment.h"
#include "tests/simulator/World.h"

#include <string_view>

namespace Simulator {

/// "rings.txt" as a host asks for it.
void StoreRingDump(World& world, RingSegment& rings);

/// "crash.txt", with the previous one beside it. The rings may be missing.
void StoreCrashLog(World& world, RingSegment* rings);

/// The file of a death by signal, which has no date but its own.
void StoreStackTrace(World& world, int process);

} // namespace Simulator
