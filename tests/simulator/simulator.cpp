/// Writes folders as devices do, reads them as nima-post does, and compares what is said with what is true.
///
///     simulator [--set main|second] [--folders N] [--seconds S] [--seed S] [--scenario NAME] [--keep DIR]
///
/// or writes folders of many devices with known causes of their crashes into DIR, and into DIR/truth.json
/// what `nima-post fleet` has to find in them (tests/simulator/Fleet.h):
///
///     simulator --fleet DIR [--folders N] [--bytes N] [--seed S]
///
/// Nothing sleeps and no device is needed: time is a number, and devices write files as the library does,
/// byte for byte (tests/simulator/simulator_test.cpp holds the text log to that). Folder number i comes from
/// the seed S + i and a scenario, one after the other, so one of them is repeated with --scenario NAME --seed
/// S+i --folders 1. In the main set the writers keep within the delays that doc/clock.md assumes, and
/// everything that is said must be true. In the second set they do not; then only what is called exact must
/// be so. With --keep a folder that fails stays in DIR, with its truth beside it. A table tells, for each
/// scenario, how many folders failed and of what, and for how large a share of lines, of records without
/// dates, and of crash logs the bounds are closer than a second, how many lines and records bear a process's
/// number, and how often a process has several. Exit status: 1 if more folders of a scenario failed than it
/// tolerates, 2 for wrong options.

#include "tests/simulator/Checker.h"
#include "tests/simulator/Fleet.h"
#include "tests/simulator/Scenarios.h"
#include "tests/simulator/World.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

namespace {

using namespace Simulator;

struct Options {
    bool main = true;
    std::uint64_t folders = 1000;
    std::int64_t seconds = INT64_MAX;
    std::uint64_t seed = 1;
    std::string scenario;
    std::string keep;
    std::string fleet;
    std::size_t bytes = std::size_t{1} << 20;
};

struct Tally {
    std::uint64_t folders = 0;
    std::uint64_t failed = 0;
    std::uint64_t splits = 0;
    std::array<std::uint64_t, kFaults> foldersWith{};
    Verdict::Share lines;
    Verdict::Share records;
    Verdict::Share crashes;

    void Add(const Verdict& verdict) {
        ++folders;
        failed += verdict.Failed();
        splits += verdict.splits;
        for (std::size_t i = 0; i < kFaults; ++i) {
            foldersWith[i] += verdict.counts[i] > 0;
        }
        Add(lines, verdict.lines);
        Add(records, verdict.records);
        Add(crashes, verdict.crashes);
    }

  private:
    static void Add(Verdict::Share& sum, const Verdict::Share& share) {
        sum.all += share.all;
        sum.bounded += share.bounded;
        sum.inProcess += share.inProcess;
    }
};

[[noreturn]] void Refuse(const std::string& why) {
    std::fprintf(stderr, "simulator: %s; see the head of tests/simulator/simulator.cpp\n", why.c_str());
    std::exit(2);
}

Options Parse(int argc, char** argv) {
    Options options;
    for (int i = 1; i < argc; i += 2) {
        const std::string name = argv[i];
        if (i + 1 >= argc) {
            Refuse(name + " needs a value");
        }
        const std::string value = argv[i + 1];
        const auto number = [&] { return std::strtoull(value.c_str(), nullptr, 10); };
        if (name == "--set" && (value == "main" || value == "second")) {
            options.main = value == "main";
        } else if (name == "--folders") {
            options.folders = number();
        } else if (name == "--seconds") {
            options.seconds = static_cast<std::int64_t>(number());
        } else if (name == "--seed") {
            options.seed = number();
        } else if (name == "--scenario") {
            options.scenario = value;
        } else if (name == "--keep") {
            options.keep = value;
        } else if (name == "--fleet") {
            options.fleet = value;
        } else if (name == "--bytes") {
            options.bytes = static_cast<std::size_t>(number());
        } else {
            Refuse(std::string("not understood: ").append(name).append(" ").append(value));
        }
    }
    return options;
}

std::vector<const Scenario*> Chosen(const Options& options) {
    std::vector<const Scenario*> chosen;
    for (const Scenario& scenario : AllScenarios()) {
        if (options.scenario.empty() || options.scenario == scenario.name) {
            chosen.push_back(&scenario);
        }
    }
    if (chosen.empty()) {
        Refuse("no such scenario: " + options.scenario);
    }
    return chosen;
}

/// For people: what was written, in the order in which it was stamped by each process.
void StoreTruth(const std::string& path, const Truth& truth, const Verdict& verdict) {
    std::ofstream out(path);
    for (const std::string& detail : verdict.details) {
        out << detail << '\n';
    }
    out << "serial wall monotonic boot process thread kind\n";
    for (std::size_t i = 0; i < truth.stamps.size(); ++i) {
        const Stamp& stamp = truth.stamps[i];
        out << i + 1 << ' ' << stamp.wall << ' ' << stamp.monotonic << ' ' << stamp.boot << ' '
            << stamp.process << " 0x" << std::hex << stamp.thread << std::dec << ' '
            << static_cast<int>(stamp.kind) << '\n';
    }
    for (const auto& [message, stamp] : truth.calibrations) {
        out << "calibration " << stamp.wall << ' ' << stamp.monotonic << ' ' << stamp.boot << ' '
            << stamp.process << ' ' << stamp.header << message << '\n';
    }
}

Verdict RunFolder(const Options& options, const Scenario& scenario, std::uint64_t seed,
                  const std::string& folder) {
    World world(seed, scenario.name, options.main ? Delays::Main() : Delays::Second());
    scenario.play(world);
    world.truth.clocks = world.device.Clocks();
    world.truth.dateDelay = world.device.LongestDateDelay();
    std::filesystem::remove_all(folder);
    std::filesystem::create_directories(folder);
    world.files.Store(folder);
    Verdict verdict = Check(folder, world.files, world.truth,
                            options.main ? Strictness::kEverything : Strictness::kOnlyExact);
    if (verdict.Failed() && !options.keep.empty()) {
        const std::string kept = options.keep + "/" + std::string(scenario.name) + "-" + std::to_string(seed);
        std::filesystem::create_directories(kept);
        world.files.Store(kept);
        StoreTruth(kept + ".truth", world.truth, verdict);
    }
    return verdict;
}

void PrintShare(std::uint64_t part, std::uint64_t all) {
    if (all == 0) {
        std::printf(" %8s", "-");
    } else {
        std::printf(" %7.1f%%", 100.0 * static_cast<double>(part) / static_cast<double>(all));
    }
}

/// Returns whether all is within what is tolerated.
bool Print(const std::vector<const Scenario*>& scenarios, const std::vector<Tally>& tallies, bool main) {
    bool fine = true;
    std::printf("%-20s %7s %6s %9s %8s %8s %8s %8s %6s  %s\n", "scenario", "folders", "failed", "tolerated",
                "lines", "records", "crashes", "numbered", "splits", "folders with");
    for (std::size_t i = 0; i < scenarios.size(); ++i) {
        const Tally& tally = tallies[i];
        // None of a single folder that somebody looks at.
        const Scenario& scenario = *scenarios[i];
        const auto tolerate = [&](int perMille) {
            return tally.folders > 1 ? Scenario::Tolerated(tally.folders, perMille) : 0;
        };
        const std::uint64_t tolerated =
            tolerate(main ? scenario.expectedPerMille : scenario.expectedOfSecond);
        const bool tooMany =
            tally.failed > tolerated || tally.foldersWith[static_cast<std::size_t>(Fault::kUnlikely)] >
                                            tolerate(scenario.expectedUnlikely);
        fine = fine && !tooMany;
        std::printf("%-20s %7llu %6llu %9llu", std::string(scenario.name).c_str(),
                    static_cast<unsigned long long>(tally.folders),
                    static_cast<unsigned long long>(tally.failed),
                    static_cast<unsigned long long>(tolerated));
        PrintShare(tally.lines.bounded, tally.lines.all);
        PrintShare(tally.records.bounded, tally.records.all);
        PrintShare(tally.crashes.bounded, tally.crashes.all);
        PrintShare(tally.lines.inProcess + tally.records.inProcess, tally.lines.all + tally.records.all);
        std::printf(" %6llu ", static_cast<unsigned long long>(tally.splits));
        for (std::size_t fault = 0; fault < kFaults; ++fault) {
            if (tally.foldersWith[fault] > 0) {
                std::printf(" %s %llu", std::string(NameOf(static_cast<Fault>(fault))).c_str(),
                            static_cast<unsigned long long>(tally.foldersWith[fault]));
            }
        }
        std::printf("%s\n", tooMany ? "  FAILED" : "");
    }
    return fine;
}

/// Returns the exit status.
int Simulate(const Options& options) {
    const auto scenarios = Chosen(options);
    const char* const temporary = std::getenv("TMPDIR");
    std::string folder = std::string(temporary != nullptr ? temporary : "/tmp") + "/nima-simulator.XXXXXX";
    if (::mkdtemp(folder.data()) == nullptr) {
        Refuse("cannot create " + folder);
    }
    std::vector<Tally> tallies(scenarios.size());
    const auto begin = std::chrono::steady_clock::now();
    for (std::uint64_t i = 0; i < options.folders; ++i) {
        if (std::chrono::steady_clock::now() - begin >=
            std::chrono::seconds(std::min<std::int64_t>(options.seconds, 1 << 30))) {
            break;
        }
        const std::size_t at = static_cast<std::size_t>(i % scenarios.size());
        const Verdict verdict = RunFolder(options, *scenarios[at], options.seed + i, folder + "/folder");
        tallies[at].Add(verdict);
        if (options.folders == 1) {
            for (const std::string& detail : verdict.details) {
                std::printf("%s\n", detail.c_str());
            }
        }
    }
    std::filesystem::remove_all(folder);
    std::printf("seed %llu, %s set\n", static_cast<unsigned long long>(options.seed),
                options.main ? "main" : "second");
    return Print(scenarios, tallies, options.main) ? 0 : 1;
}

} // namespace

int main(int argc, char** argv) {
    try {
        const Options options = Parse(argc, argv);
        if (options.fleet.empty()) {
            return Simulate(options);
        }
        MakeFleet({options.fleet, options.folders, options.bytes, options.seed});
        return 0;
    } catch (const std::exception& error) {
        Refuse(error.what());
    }
}
