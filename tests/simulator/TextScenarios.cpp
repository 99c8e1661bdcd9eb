#include "tests/simulator/TextScenarios.h"

#include "tests/simulator/Scenarios.h"

#include <deque>
#include <iterator>
#include <optional>

namespace Simulator {

namespace {

std::int64_t SmallLog(Random& random) {
    return random.OneOf({9'000, 20'000, 45'000});
}

/// By whole hours, as between time zones and in summer; by any time; by less than a second.
std::int64_t ClockStep(Random& random) {
    const std::int64_t step =
        random.OneOf({kHour, random.Between(1, 90 * kMinute), random.Between(1, kSecond)});
    return random.OneIn(2) ? step : -step;
}

void PassOrReboot(World& world) {
    Random& random = world.random;
    random.OneIn(2) ? world.device.Pass(random.Between(kMillisecond, kMinute))
                    : world.device.Reboot(random.Between(kSecond, kHour), true);
}

/// With a clock, with one that begins anew, or with one that goes on earlier than it stopped.
void PassOrRebootAnyhow(World& world) {
    Random& random = world.random;
    switch (random.Below(3)) {
        case 0:
            return world.device.Reboot(kMinute, false);
        case 1:
            return world.device.Reboot(-random.Between(kSecond, 5 * kMinute), true);
        default:
            return PassOrReboot(world);
    }
}

/// Dies with its buffer, of which a part is in the file: the last line has no end.
void Tear(World& world, Host& host) {
    const std::size_t buffered = host.log.Buffered();
    const auto kept = buffered == 0 ? 0 : world.random.Between(1, static_cast<std::int64_t>(buffered));
    host.Kill(static_cast<std::size_t>(kept));
    const std::string& content = world.files.Open("device.log")->content;
    if (content.back() != '\n') {
        world.truth.damaged = world.truth.torn = true;
    }
}

} // namespace

void Live(World& world, const Lives& lives) {
    Random& random = world.random;
    std::deque<Host> hosts;
    const int count = random.Small(lives.fewest, lives.most);
    for (int i = 0; i < count; ++i) {
        if (i > 0) {
            lives.between ? lives.between()
                          : world.device.Pass(random.Between(kMillisecond, random.OneOf({kSecond, kHour})));
        }
        LogSettings settings = lives.settings;
        settings.name = lives.logEach ? "device-" + std::to_string(i) + ".log" : settings.name;
        if (lives.configure) {
            lives.configure(settings);
        }
        Host& host = i > 0 && random.OneIn(3) ? hosts.emplace_back(world, settings, hosts.back())
                                              : hosts.emplace_back(world, settings);
        if (lives.equip) {
            lives.equip(host);
        }
        host.Start();
        const Pace pace = lives.pace(random);
        const int pieces = lives.meanwhile ? random.Small(2, 5) : 1;
        for (int piece = 0; piece < pieces; ++piece) {
            if (piece > 0) {
                lives.meanwhile(host);
            }
            Work(world, {&host.process}, pace, random.Small(lives.leastWrites, lives.mostWrites));
        }
        lives.end ? lives.end(host) : host.End();
    }
}

void LiveTogether(World& world, const LogSettings& first, const LogSettings& second,
                  const std::function<void(Host&)>& equip, const std::function<void()>& meanwhile) {
    Random& random = world.random;
    Host a(world, first);
    std::optional<Host> other;
    Host& b = random.OneIn(5) ? other.emplace(world, second, a) : other.emplace(world, second);
    if (equip) {
        equip(a);
        equip(b);
    }
    a.Start();
    world.device.Pass(random.Below(2 * kSecond));
    const Pace pace = Pace::Any(random);
    Work(world, {&a.process}, pace, random.Small(0, 100));
    b.Start();
    Work(world, {&a.process, &b.process}, pace, random.Small(100, 1200));
    if (meanwhile) {
        meanwhile();
        Work(world, {&a.process, &b.process}, pace, random.Small(100, 1200));
    }
    a.End();
    Work(world, {&b.process}, pace, random.Small(1, 100));
    b.End();
}

void OneRun(World& world) {
    Live(world, {.settings = {}, .mostWrites = 1500});
}

void Rolls(World& world) {
    Live(world, {.settings = {.maximum = SmallLog(world.random), .backups = 1}, .mostWrites = 2500});
}

void Rewinds(World& world) {
    Live(
        world,
        {.settings = {.maximum = SmallLog(world.random)}, .most = 3, .leastWrites = 200, .mostWrites = 2500});
}

void UnbufferedRewinds(World& world) {
    Live(world, {.settings = {.maximum = SmallLog(world.random), .buffered = false},
                 .most = 3,
                 .leastWrites = 200,
                 .mostWrites = 2500});
}

/// The maximum is another after each start, so that rounds end anywhere.
void ChangedMaximum(World& world) {
    Live(world, {.settings = {},
                 .fewest = 2,
                 .most = 3,
                 .leastWrites = 20,
                 .mostWrites = 1000,
                 .configure = [&](LogSettings& settings) { settings.maximum = SmallLog(world.random); },
                 .between = [&] { PassOrReboot(world); }});
}

/// Each process writes over what the one before it left, from the start.
void OpenedAnew(World& world) {
    Live(world, {.settings = {.maximum = SmallLog(world.random), .append = false},
                 .fewest = 2,
                 .most = 3,
                 .leastWrites = 5,
                 .mostWrites = 400,
                 .between = [&] { PassOrReboot(world); }});
}

void Appended(World& world) {
    Live(world, {.settings = {}, .fewest = 2, .most = 5});
}

void OtherOpenings(World& world) {
    Random& random = world.random;
    LogSettings settings{.maximum = random.OneOf({20'000, 1 << 20}), .backups = random.Small(0, 1)};
    settings.append = random.OneIn(2);
    Live(world, {.settings = settings, .most = 3, .mostWrites = 400, .meanwhile = [&](Host& host) {
                     host.process.Settle();
                     host.log.Open(host.process.MainThread());
                     world.device.Pass(random.Between(1, 10 * kMillisecond));
                 }});
}

void Boots(World& world) {
    Live(world, {.settings = {}, .fewest = 2, .most = 6, .mostWrites = 400, .between = [&] {
                     world.device.Reboot(
                         world.random.Between(4 * kSecond, world.random.OneOf({kMinute, 20 * kHour})), true);
                 }});
}

void BootsWithoutClock(World& world) {
    const std::int64_t maximum = world.random.OneOf({1 << 20, SmallLog(world.random)});
    Live(world, {.settings = {.maximum = maximum, .backups = 1},
                 .fewest = 2,
                 .most = 6,
                 .mostWrites = 400,
                 .between = [&] { world.device.Reboot(kMinute, false); }});
}

void RolledBoots(World& world) {
    Live(world, {.settings = {.backups = 1, .append = false},
                 .fewest = 2,
                 .most = 6,
                 .mostWrites = 400,
                 .between = [&] { world.device.Reboot(world.random.Between(4 * kSecond, kHour), true); }});
}

void ClockSet(World& world) {
    Random& random = world.random;
    Live(world, {.settings = {.maximum = SmallLog(random), .backups = random.Small(0, 1)},
                 .most = 3,
                 .mostWrites = 400,
                 .meanwhile = [&](Host&) { world.device.SetClock(ClockStep(random)); }});
}

void Kills(World& world) {
    Live(world, {.settings = {},
                 .fewest = 1,
                 .most = 4,
                 .end = [](Host& host) { host.Kill(); },
                 .between = [&] { PassOrReboot(world); }});
}

void TornTails(World& world) {
    Live(world, {.settings = {},
                 .fewest = 2,
                 .most = 4,
                 .mostWrites = 300,
                 .end = [&](Host& host) { Tear(world, host); },
                 .between = [&] { PassOrReboot(world); }});
}

namespace {

/// As an engineer's host traces it: a page of a manual, or an opening of the log as another program reads it,
/// with its end or without.
std::string Quoted(World& world) {
    Random& random = world.random;
    if (random.OneIn(4)) {
        return "657986616 <0xb7865740:000> <CAL> <Trace> Calibration freq=1000000, "
               "now=01250924155811.30089, type=qpc\n"
               "658007412 <0xb7865740:000> <WARN> <Engine> fuser at 180 C\n";
    }
    auto calibration = world.truth.calibrations.begin();
    std::advance(calibration, random.Below(static_cast<std::int64_t>(world.truth.calibrations.size())));
    const char* const end = random.OneIn(2) ? "\r\n" : random.OneIn(2) ? "\n" : "";
    return calibration->second.header + calibration->first + end;
}

} // namespace

void Quotes(World& world) {
    Random& random = world.random;
    Live(world, {.settings = {},
                 .most = 4,
                 .mostWrites = 300,
                 .end = [&](Host& host) { random.OneIn(3) ? Tear(world, host) : host.End(); },
                 .between = [&] { PassOrRebootAnyhow(world); },
                 .meanwhile =
                     [&](Host& host) {
                         host.process.Settle();
                         host.log.Flush(false);
                         const std::uint32_t thread = host.process.MainThread();
                         const std::string text = (random.OneIn(2) ? "read: " : "read:\n") + Quoted(world);
                         host.log.Line(thread, text);
                         world.device.Pass(random.Between(kMicrosecond, 20 * kMillisecond));
                         host.log.Line(thread);
                     }});
}

void TwoFiles(World& world) {
    Random& random = world.random;
    const LogSettings first{.name = "engine.log", .maximum = random.OneOf({SmallLog(random), 1 << 20})};
    const LogSettings second{
        .name = "panel.log", .maximum = random.OneOf({SmallLog(random), 1 << 20}), .backups = 1};
    LiveTogether(world, first, second);
}

void LogsInTurn(World& world) {
    Live(world, {.settings = {}, .logEach = true, .fewest = 2, .most = 4, .mostWrites = 400, .between = [&] {
                     PassOrRebootAnyhow(world);
                 }});
}

/// A process that opens a second log, and then writes that one or both.
void MovedLog(World& world) {
    Random& random = world.random;
    Live(world, {.settings = {.name = "day.log"}, .mostWrites = 400});
    Host host(world, {.name = "day.log"});
    TextLog night(world, host.process, {.name = "night.log", .maximum = SmallLog(random), .backups = 1});
    host.Start();
    const Pace pace = Pace::Any(random);
    Work(world, {&host.process}, pace, random.Small(1, 400));
    night.Open(host.process.MainThread());
    if (random.OneIn(2)) {
        host.log.Close();
    }
    host.process.Writes(night.Writer());
    Work(world, {&host.process}, pace, random.Small(1, 400));
    host.process.Settle();
    night.Close();
    host.End();
}

void TwoFilesBoots(World& world) {
    for (int boot = 0; boot < 2; ++boot) {
        if (boot > 0) {
            PassOrRebootAnyhow(world);
        }
        LiveTogether(world, {.name = "engine.log"}, {.name = "panel.log"});
    }
}

void TwoFilesClockSet(World& world) {
    Random& random = world.random;
    LiveTogether(world, {.name = "engine.log"},
                 {.name = "panel.log", .maximum = SmallLog(random), .backups = 1}, {},
                 [&] { world.device.SetClock(ClockStep(random)); });
}

void SharedFile(World& world) {
    const LogSettings both{.maximum = world.random.OneOf({SmallLog(world.random), 1 << 20})};
    world.truth.damaged = world.truth.shared = true;
    LiveTogether(world, both, both);
}

} // namespace Simulator
