#include "catalogue/OwnEvents.h"
#include "tests/simulator/CrashFiles.h"
#include "tests/simulator/RingSegment.h"
#include "tests/simulator/Scenarios.h"
#include "tests/simulator/TextScenarios.h"
#include "tests/simulator/TraceBlock.h"

#include <optional>

namespace Simulator {

namespace {

/// What the processes of a device share.
class Machine {
  public:
    Machine(World& world, bool hasTrace, bool hasRings) : world_(world) {
        if (hasTrace) {
            ClearTrace();
        }
        if (hasRings) {
            rings_.emplace(world);
        }
    }
    Machine(const Machine&) = delete;
    Machine& operator=(const Machine&) = delete;

    /// Every crash log is to have a name of its own.
    void NameCrashLogs() { ownNames_ = true; }
    /// None is to tell the boot cycle.
    void CountNoBoots() { countsBoots_ = false; }

    void Equip(Host& host) {
        if (trace_) {
            host.process.Writes(trace_->Writer(host.process), world_.random.Small(1, 4));
        }
        if (rings_) {
            host.process.Writes(rings_->LayOut(host.process), world_.random.Small(1, 4));
        }
    }
    /// In the middle of a record, as often as not.
    void Kill(Host& host) {
        const bool midway = trace_ && world_.random.OneIn(2);
        for (int i = 0; midway && i < 200 && !trace_->IsWriting(host.process); ++i) {
            world_.device.Pass(world_.random.Between(500, kMillisecond));
            host.process.Act();
        }
        host.Kill();
        if (trace_ && trace_->Kill(host.process)) {
            world_.truth.damaged = true;
        }
    }
    /// A fatal error leaves files and ends the process in order.
    void Crash(Host& host) {
        host.process.Settle();
        const std::uint32_t thread = host.process.MainThread();
        host.log.Line(thread);
        if (trace_) {
            trace_->Own(thread, IdOf(Nima::Catalogue::OwnTraceEvent::kFatalErrorHandling));
            trace_->Dump(thread);
        }
        if (rings_) {
            rings_->Own(thread);
        }
        const int process = host.process.Number();
        // Names that tell the wrong order, where there is no number to tell it.
        const std::string name = ownNames_ ? "crash-" + std::to_string(100 - process) + ".txt" : "crash.txt";
        Failure failure;
        failure.hasBootCycle = countsBoots_;
        StoreCrashLog(world_, process, rings_ ? &*rings_ : nullptr, failure, name);
        host.End();
    }
    /// A signal leaves a stack trace and nothing that was in memory.
    void DieOfSignal(Host& host) {
        StoreStackTrace(world_, host.process.Number());
        Kill(host);
    }
    /// What is in memory does not outlive a boot.
    void Clear() {
        if (rings_) {
            rings_->Clear();
        }
        if (trace_) {
            ClearTrace();
        }
    }
    void DumpRings(Host& host) {
        host.process.Settle();
        if (rings_) {
            StoreRingDump(world_, *rings_);
        }
    }
    /// What is in memory when the files are fetched.
    void Fetch() {
        if (trace_) {
            trace_->StoreSegment();
        }
        if (rings_) {
            rings_->StoreSegment();
        }
    }

  private:
    void ClearTrace() {
        trace_.emplace(world_, static_cast<std::uint32_t>(world_.random.OneOf({1024, 4096, 16384})));
    }

    World& world_;
    std::optional<TraceBlock> trace_;
    std::optional<RingSegment> rings_;
    bool ownNames_ = false;
    bool countsBoots_ = true;
};

/// A new process soon, or after a boot. With or without a clock, the shared files are still there.
void RestartOrBoot(World& world) {
    Random& random = world.random;
    if (random.OneIn(2)) {
        world.device.Pass(random.Between(kMillisecond, random.OneOf({3 * kSecond, kHour})));
    } else {
        const std::int64_t downTime = random.Between(kSecond, random.OneOf({kMinute, 5 * kHour}));
        world.device.Reboot(downTime, !random.OneIn(4));
    }
}

Lives LivesOf(Machine& machine) {
    return {.settings = {}, .mostWrites = 2500, .equip = [&](Host& host) { machine.Equip(host); }};
}

void LiveAndFetch(World& world, Machine& machine, const Lives& lives) {
    Live(world, lives);
    machine.Fetch();
}

} // namespace

void Traces(World& world) {
    Machine machine(world, true, false);
    LiveAndFetch(world, machine, LivesOf(machine));
}

void TraceKills(World& world) {
    Machine machine(world, true, false);
    Lives lives = LivesOf(machine);
    lives.most = 3;
    lives.end = [&](Host& host) { machine.Kill(host); };
    LiveAndFetch(world, machine, lives);
}

void TraceRestarts(World& world) {
    Machine machine(world, true, false);
    Lives lives = LivesOf(machine);
    lives.fewest = 2;
    lives.most = 4;
    lives.between = [&] { RestartOrBoot(world); };
    LiveAndFetch(world, machine, lives);
}

void SharedTrace(World& world) {
    Machine machine(world, true, false);
    LiveTogether(world, {.name = "engine.log"}, {.name = "panel.log"},
                 [&](Host& host) { machine.Equip(host); });
    machine.Fetch();
}

namespace {

void RingsAt(World& world, Pace (*pace)(Random& random)) {
    Machine machine(world, false, true);
    Lives lives = LivesOf(machine);
    lives.pace = pace;
    if (world.random.OneIn(2)) {
        lives.meanwhile = [&](Host& host) { machine.DumpRings(host); };
    }
    LiveAndFetch(world, machine, lives);
}

} // namespace

void Rings(World& world) {
    RingsAt(world, Pace::Busy);
}

void SlowRings(World& world) {
    RingsAt(world, Pace::Any);
}

void RingRestarts(World& world) {
    Machine machine(world, false, true);
    Lives lives = LivesOf(machine);
    lives.fewest = 2;
    lives.most = 4;
    lives.between = [&] { RestartOrBoot(world); };
    lives.end = [&](Host& host) { world.random.OneIn(2) ? machine.Kill(host) : host.End(); };
    LiveAndFetch(world, machine, lives);
}

void CrashLogs(World& world) {
    Machine machine{world, world.random.OneIn(2), !world.random.OneIn(3)};
    Lives lives = LivesOf(machine);
    lives.most = 3;
    lives.mostWrites = 1200;
    lives.end = [&](Host& host) { machine.Crash(host); };
    lives.between = [&] { RestartOrBoot(world); };
    LiveAndFetch(world, machine, lives);
}

/// Each boot has a new log and empty rings, so that crash logs and traces are all that is left of those
/// before.
namespace {

void LiveAndLoseLogs(World& world, Machine& machine) {
    if (world.random.OneIn(2)) {
        machine.NameCrashLogs();
    }
    Lives lives = LivesOf(machine);
    lives.fewest = 2;
    lives.most = 4;
    lives.mostWrites = 600;
    lives.end = [&](Host& host) { machine.Crash(host); };
    lives.between = [&] {
        world.files.Remove("device.log");
        world.device.Reboot(world.random.Between(kSecond, kHour), !world.random.OneIn(3));
        machine.Clear();
    };
    LiveAndFetch(world, machine, lives);
}

} // namespace

void LoneCrashLogs(World& world) {
    Machine machine(world, false, !world.random.OneIn(4));
    LiveAndLoseLogs(world, machine);
}

/// The same with dumps of the trace, and by hosts that do not count boots.
void LoneDumps(World& world) {
    Machine machine(world, !world.random.OneIn(3), world.random.OneIn(3));
    machine.CountNoBoots();
    LiveAndLoseLogs(world, machine);
}

void Everything(World& world) {
    Random& random = world.random;
    Machine machine{world, !random.OneIn(3), !random.OneIn(3)};
    Lives lives = LivesOf(machine);
    lives.settings = {.maximum = random.OneOf({20'000, 45'000, 1 << 20}), .backups = random.Small(0, 1)};
    lives.settings.append = !random.OneIn(4);
    lives.most = 4;
    lives.mostWrites = 600;
    lives.between = [&] { RestartOrBoot(world); };
    lives.meanwhile = [&](Host& host) {
        switch (random.Below(4)) {
            case 0:
                return world.device.SetClock(random.Between(-kHour, kHour));
            case 1:
                return machine.DumpRings(host);
            case 2:
                return host.log.Open(host.process.MainThread());
            default:
                return world.device.Pass(random.Below(kMinute));
        }
    };
    lives.end = [&](Host& host) {
        switch (random.Below(4)) {
            case 0:
                return machine.Kill(host);
            case 1:
                return machine.Crash(host);
            case 2:
                return machine.DieOfSignal(host);
            default:
                return host.End();
        }
    };
    LiveAndFetch(world, machine, lives);
}

} // namespace Simulator
