#include "tests/simulator/TextScenarios.h"

#include "tests/simulator/Scenarios.h"

#include <deque>

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
        Host& host = i > 0 && random.OneIn(3) ? hosts.emplace_back(world, lives.settings, hosts.back())
                                              : hosts.emplace_back(world, lives.settings);
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
    Host b(world, second);
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
    Live(world, {.settings = {}, .fewest = 2, .most = 6, .mostWrites = 400, .between = [&] {
                     world.device.Reboot(kMinute, false);
                 }});
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

void TwoFiles(World& world) {
    Random& random = world.random;
    const LogSettings first{.name = "engine.log", .maximum = random.OneOf({SmallLog(random), 1 << 20})};
    const LogSettings second{
        .name = "panel.log", .maximum = random.OneOf({SmallLog(random), 1 << 20}), .backups = 1};
    LiveTogether(world, first, second);
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
