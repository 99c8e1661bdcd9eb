#include "tests/simulator/Fleet.h"

#include "tests/simulator/CrashFiles.h"
#include "tests/simulator/Host.h"
#include "tests/simulator/TraceBlock.h"
#include "tests/simulator/World.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string_view>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

namespace Simulator {

namespace {

/// Why devices die. In frames, "$T" stands for a type that differs from device to device, and "*" at the end
/// for a function that calls itself some number of times.
struct Cause {
    std::string_view signature;
    int share = 0;            ///< of a hundred devices
    std::string_view warning; ///< what only they say before it
    Failure failure;          ///< reported, where there are no frames
    std::vector<std::string_view> frames;
};

const std::vector<Cause>& Causes() {
    static const std::vector<Cause> causes{
        {"0x0031ac05 at fuser.cpp:24", 9, "fuser is %d degrees too hot", {"31AC05", "fuser.cpp", 24}, {}},
        {"Tray::Feed(int) | Job::Run(Page const&) | Engine::Loop()",
         8,
         "tray %d lifts slowly",
         {},
         {"Tray::Feed(int)", "std::function<void ($T)>::operator()($T) const", "Job::Run(Page const&)",
          "Engine::Loop()", "main"}},
        {"Queue<>::Pop | Panel::Draw(Queue<>&) | main",
         6,
         "panel has %d events waiting",
         {},
         {"memcpy", "Queue<$T>::Pop($T const&)", "Panel::Draw(Queue<$T>&)", "std::__invoke<$T>($T&&)",
          "main"}},
        {"0x0031ac05 at fuser.cpp:91", 4, "fuser stays cold for %d s", {"31AC05", "fuser.cpp", 91}, {}},
        {"Menu::Find(char const*) | Menu::Open() | main",
         3,
         "menu is %d levels deep",
         {},
         {"Menu::Find(char const*)*", "Menu::Open()", "main"}},
        {"Tray::Feed(Page const&) | Job::Run(Page const&) | Engine::Loop()",
         2,
         "page of %d mm does not fit",
         {},
         {"Tray::Feed(Page const&)", "Job::Run(Page const&)", "Engine::Loop()", "main"}},
        {"0x0012dead at watchdog.cpp:90",
         1,
         "scanner does not answer for %d ms",
         {"12DEAD", "watchdog.cpp", 90},
         {}},
    };
    return causes;
}

constexpr std::array<std::string_view, 12> kChatter{"<WARN> <Engine> page %d done in 5 ms",
                                                    "<INFO> <Job> job %d has 3 pages",
                                                    "<DEBUG> <Net> packet of %d bytes from 0x1f",
                                                    "<WARN> <Panel> key %d held down",
                                                    "<PERF> <Scanner> line %d in 12 us",
                                                    "<WARN> <Scanner> glass has %d specks",
                                                    "<DEBUG> <Fax> modem at %d baud",
                                                    "<INFO> <Toner> black at %d percent",
                                                    "<WARN> <Toner> yellow at %d percent",
                                                    "<INFO> <Power> sleeps after %d s",
                                                    "<DEBUG> <Store> %d blocks free",
                                                    "<INFO> <Clock> %d s behind the server"};
constexpr std::array<std::string_view, 4> kTypes{"int", "Page", "std::pair<int, Job*>", "unsigned long"};
constexpr std::array<std::string_view, 3> kVersions{"4.2.1", "4.3.0", "4.3.1"};

std::string WithNumber(std::string_view text, std::int64_t number) {
    std::string made(text);
    made.replace(made.find("%d"), 2, std::to_string(number));
    return made;
}

/// A line of a stack trace, cut as the handler cuts it.
std::string FrameLine(Random& random, std::string_view function, std::uint64_t base) {
    constexpr std::size_t kMost = 98;
    std::array<char, 200> line{};
    const std::uint64_t address = base + random.Below(1 << 20);
    std::snprintf(line.data(), line.size(), "0x%llx: (%.*s+0x%x)", static_cast<unsigned long long>(address),
                  static_cast<int>(function.size()), function.data(), random.Small(1, 4000));
    return std::string(line.data()).substr(0, kMost) + "\n";
}

std::string Frames(Random& random, const Cause& cause) {
    const std::uint64_t base = 0x560000000000 + (std::uint64_t{random.Word()} << 12);
    const std::string_view type = kTypes[static_cast<std::size_t>(random.Below(kTypes.size()))];
    std::string lines = FrameLine(random, "__restore_rt", 0x7f0000000000);
    for (const std::string_view frame : cause.frames) {
        std::string function(frame.substr(0, frame.find_last_not_of('*') + 1));
        for (std::size_t at = function.find("$T"); at != std::string::npos; at = function.find("$T")) {
            function.replace(at, 2, type);
        }
        const int times = frame.ends_with('*') ? random.Small(1, 30) : 1;
        for (int i = 0; i < times; ++i) {
            lines += FrameLine(random, function, base);
        }
    }
    return lines + FrameLine(random, "__libc_start_main", 0x7f0000000000);
}

/// One device and what becomes of it.
class Unit {
  public:
    Unit(std::uint64_t seed, std::size_t bytes)
        : world_(seed, "fleet", Delays::Main()), trace_(world_, 1024), bytes_(bytes) {}

    /// A process that works until its log has this share of the folder's bytes, and dies if it has a cause
    /// to.
    void Live(double share, const Cause* cause) {
        Host& host = hosts_.emplace_back(world_, LogSettings{.maximum = 8 << 20});
        host.Start();
        Say(host, "<WARN> <Main> firmware " + std::string(kVersions[static_cast<std::size_t>(version_)]) +
                      " starts");
        const auto trace = trace_.Writer(host.process);
        const auto end = static_cast<std::size_t>(share * static_cast<double>(bytes_));
        while (world_.files.Open("device.log")->content.size() < end) {
            for (int i = 0; i < 40; ++i) {
                Chat(host);
            }
            trace(host.process.MainThread());
        }
        host.process.Settle();
        if (cause != nullptr) {
            Die(host, *cause);
        } else {
            host.End();
        }
        world_.device.Pass(world_.random.Between(kSecond, kMinute));
    }
    /// The log is lost, and with it all that has a date.
    void LoseLog() { world_.files.Remove("device.log"); }

    void Store(const std::string& folder) {
        if (world_.files.Exists("device.log")) {
            trace_.StoreSegment();
        }
        std::filesystem::create_directories(folder);
        world_.files.Store(folder);
    }

  private:
    void Say(Host& host, const std::string& text) {
        world_.device.Pass(world_.random.Between(500, 40 * kMillisecond));
        const std::uint32_t thread = host.process.MainThread();
        host.log.Store(thread, host.log.HeaderNow(thread), text);
    }
    void Chat(Host& host) {
        Random& random = world_.random;
        Say(host, WithNumber(kChatter[static_cast<std::size_t>(random.Below(kChatter.size()))],
                             random.Below(9000)));
    }

    void Die(Host& host, const Cause& cause) {
        Random& random = world_.random;
        for (int i = random.Small(1, 4); i > 0; --i) {
            Say(host, "<ERROR> <Engine> " + WithNumber(cause.warning, random.Below(100)));
            Chat(host);
        }
        if (cause.frames.empty()) {
            Failure failure = cause.failure;
            // Wherever it was built.
            failure.file = "/home/build-" + std::to_string(random.Below(100)) + "/src/" + failure.file;
            StoreCrashLog(world_, host.process.Number(), nullptr, failure);
            host.End();
        } else {
            host.log.Flush(false);
            host.Kill();
            StoreStackTrace(world_, host.process.Number(), Frames(random, cause));
        }
    }

    World world_;
    TraceBlock trace_;
    std::size_t bytes_;
    std::int64_t version_ = world_.random.Below(kVersions.size());
    std::deque<Host> hosts_;
};

/// What has to be found.
class FleetTruth {
  public:
    void Add(const Cause& cause, std::uint64_t device) {
        Struck& struck = struck_[std::string(cause.signature)];
        struck.devices.insert(device);
        ++struck.crashes;
    }

    void Store(const std::string& path) const {
        using Row = std::tuple<std::int64_t, std::int64_t, std::string>;
        std::vector<Row> rows;
        for (const auto& [signature, struck] : struck_) {
            rows.emplace_back(-static_cast<std::int64_t>(struck.devices.size()), -struck.crashes, signature);
        }
        std::sort(rows.begin(), rows.end());
        nlohmann::json signatures = nlohmann::json::array();
        for (const auto& [devices, crashes, signature] : rows) {
            signatures.push_back({{"signature", signature}, {"devices", -devices}, {"crashes", -crashes}});
        }
        std::ofstream(path) << nlohmann::json{{"signatures", signatures}}.dump(1) << '\n';
    }

  private:
    struct Struck {
        std::set<std::uint64_t> devices;
        std::int64_t crashes = 0;
    };
    std::map<std::string, Struck> struck_;
};

const Cause* CauseOf(std::uint64_t device) {
    constexpr int kStride = 37; // no neighbours
    int share = static_cast<int>(device * kStride % 100);
    for (const Cause& cause : Causes()) {
        share -= cause.share;
        if (share < 0) {
            return &cause;
        }
    }
    return nullptr;
}

} // namespace

void MakeFleet(const FleetPlan& plan) {
    constexpr std::uint64_t kLaterIn = 8;
    constexpr std::uint64_t kLostIn = 11;
    FleetTruth truth;
    for (std::uint64_t device = 0; device < plan.devices; ++device) {
        std::array<char, 32> name{};
        std::snprintf(name.data(), name.size(), "unit-%04llu", static_cast<unsigned long long>(device));
        Unit unit(plan.seed + device, plan.bytes);
        const Cause* const cause = CauseOf(device);
        unit.Live(0.3, nullptr);
        unit.Live(0.9, cause);
        if (cause != nullptr) {
            truth.Add(*cause, device);
        }
        if (cause != nullptr && !cause->frames.empty() && device % kLostIn == 0) {
            unit.LoseLog();
        }
        unit.Store(plan.folder + "/" + name.data());
        if (cause != nullptr && device % kLaterIn == 1) {
            // A later bundle holds the first crash as well.
            unit.Live(1.0, cause);
            truth.Add(*cause, device);
            unit.Store(plan.folder + "/later/" + name.data());
        }
    }
    truth.Store(plan.folder + "/truth.json");
}

} // namespace Simulator
