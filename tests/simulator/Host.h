#pragma once

#include "tests/simulator/Process.h"
#include "tests/simulator/TextLog.h"

#include <utility>

namespace Simulator {

/// A process that writes a log.
class Host {
  public:
    Host(World& world, LogSettings settings) : Host(world, Process(world), std::move(settings)) {}
    /// With the other's thread identifiers.
    Host(World& world, LogSettings settings, const Host& like)
        : Host(world, Process(world, like.process), std::move(settings)) {}
    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    void Start() { log.Open(process.MainThread()); }
    void End() {
        process.Settle();
        log.Close();
    }
    void Kill(std::size_t kept = 0) {
        process.Kill();
        log.Kill(kept);
    }

    Process process;
    TextLog log;

  private:
    Host(World& world, Process made, LogSettings settings)
        : process(std::move(made)), log(world, process, std::move(settings)) {
        process.Writes(log.Writer());
    }
};

} // namespace Simulator
