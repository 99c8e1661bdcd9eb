#pragma once

#include "tests/simulator/RingSegment.h"
#include "tests/simulator/World.h"

#include <string>

namespace Simulator {

/// "rings.txt" as a host asks for it.
void StoreRingDump(World& world, RingSegment& rings);

/// What a component reports when it gives up.
struct Failure {
    std::string code = "31AC05";
    std::string file = "/src/device/fuser.cpp";
    int line = 24;
    bool hasBootCycle = true; ///< else the host has set none
};

/// The crash log of a process, with the previous one of the same name beside it. The rings may be missing.
void StoreCrashLog(World& world, int process, RingSegment* rings, const Failure& failure = {},
                   const std::string& name = "crash.txt");

/// The files of a death by signal, which have no date but their own. `frames` are the lines below the
/// handler's.
void StoreStackTrace(World& world, int process,
                     const std::string& frames = "0x563f4c87a62d: (Feed(int)+0x11d)\n");

} // namespace Simulator
