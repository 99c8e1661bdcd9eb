// Recovery of time, checked against streams whose true times are known.

#include "tests/support/Sandbox.h"
#include "tests/support/TraceDevices.h"
#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"
#include "tools/base/WallClock.h"
#include "tools/input/EvidenceReader.h"
#include "tools/log/FollowClock.h"
#include "tools/log/LogFollower.h"
#include "tools/log/LogSet.h"

#include <algorithm>
#include <cstdlib>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <Diagnostics/RollingLogFile.h>

using namespace NimaPost;
using namespace Nima::Testing;
using Nima::Common::System::OS::Diagnostics::CRollingLogFile;

namespace {

constexpr std::int64_t kMillisecond = 1'000'000;
constexpr std::int64_t kBoot = 86'400 * kSecond + 999'000'000;

std::int64_t CounterAt(std::int64_t time) {
    return time / kSecond + time % kSecond;
}

struct Stamp {
    std::int64_t time;
    std::uint32_t thread;
};

/// Bursts of several threads with pauses between them. `longest` limits a pause, `heldUp` how late a writer
/// may store.
std::vector<Stamp> Stream(std::uint32_t seed, std::int64_t longest, std::int64_t heldUp) {
    std::mt19937_64 random(seed);
    const auto below = [&](std::int64_t limit) {
        return static_cast<std::int64_t>(random() % static_cast<std::uint64_t>(limit));
    };
    std::vector<Stamp> stamps;
    std::int64_t time = kBoot;
    for (int burst = 0; burst < 60; ++burst) {
        time += below(longest);
        for (int i = 0; i < 50; ++i) {
            time += below(kMillisecond);
            stamps.push_back({time, static_cast<std::uint32_t>(below(4))});
        }
    }
    if (heldUp > 0) {
        // A delayed writer stores after others, but never after a later stamp of its own.
        for (std::size_t i = 0; i + 1 < stamps.size(); ++i) {
            Stamp& a = stamps[i];
            Stamp& b = stamps[i + 1];
            if (a.thread != b.thread && b.time - a.time < heldUp && below(3) == 0) {
                std::swap(a, b);
            }
        }
    }
    return stamps;
}

std::string Line(std::int64_t time, const std::string& body, std::uint32_t thread = 1) {
    char text[300];
    std::snprintf(text, sizeof(text), "%lld <0x%08x:000> %s\r\n", static_cast<long long>(CounterAt(time)),
                  thread, body.c_str());
    return text;
}

/// `wall`: nanoseconds since 1970 at the same moment.
std::string Calibration(std::int64_t time, std::int64_t wall, std::uint32_t thread = 1) {
    const std::int64_t ofDay = wall / kSecond % 86400; // All of it on 24 November 2026.
    char text[200];
    std::snprintf(text, sizeof(text),
                  "<CAL> <Trace> Calibration freq=1000000, now=01261024%02d%02d%02d.%d, type=qpc",
                  static_cast<int>(ofDay / 3600), static_cast<int>(ofDay / 60 % 60),
                  static_cast<int>(ofDay % 60), static_cast<int>(wall / 1000 % 1'000'000 & 0xFFFF));
    return Line(time, text, thread);
}

constexpr std::int64_t kDay = 1'795'478'400 * kSecond; // 24 November 2026
/// From the uptime to the wall clock.
constexpr std::int64_t kOffset = kDay + 40'000 * kSecond - kBoot;

std::string Opening(std::int64_t time, std::uint32_t thread = 1) {
    return Calibration(time, time + kOffset, thread);
}

/// The files of a log are read with their backups.
struct Logs {
    LogSet set;
    std::vector<LogEntry> entries; ///< without views into the files

    explicit Logs(const std::vector<std::string>& paths,
                  const std::optional<CollectedMoment>& collected = std::nullopt) {
        Evidence evidence = ReadEvidence(paths, InputLimits(), true);
        for (Device& device : evidence.devices) {
            set.Add(device);
        }
        set.SetCollected(collected);
        set.Arrange();
        set.ForEach([&](const LogEntry& entry) {
            messages.emplace_back(entry.line.message);
            entries.push_back(entry);
            entries.back().line = LogLine();
            entries.back().text = {};
            return true;
        });
    }
    std::string Messages() const {
        std::string all;
        for (const std::string& message : messages) {
            all += message.starts_with("Calibration") ? "C|" : message + "|";
        }
        return all;
    }
    std::vector<std::string> messages;
};

Logs LogsOf(const std::string& log) {
    WriteFile("a.log", log);
    return Logs({"a.log"});
}

bool Has(const std::vector<Finding>& findings, const std::string& code) {
    return std::any_of(findings.begin(), findings.end(),
                       [&](const Finding& finding) { return finding.code == code; });
}

class LogTimes : public Sandbox {};

} // namespace

TEST(CounterTimes, AreExactWhileNoThreadlessSecondPasses) {
    for (std::uint32_t seed = 1; seed <= 20; ++seed) {
        for (const std::int64_t heldUp : {std::int64_t{0}, kMillisecond}) {
            const auto stamps = Stream(seed, 890 * kMillisecond, heldUp);
            CounterClock clock;
            for (const Stamp& stamp : stamps) {
                ASSERT_EQ(clock.Next(CounterAt(stamp.time), stamp.thread), stamp.time - stamps.front().time);
            }
            EXPECT_EQ(clock.Breaks(), 0U);
        }
    }
}

TEST(CounterTimes, OfOneThreadAreExactUpToASecondAndNeverTooLateBeyond) {
    CounterClock clock;
    std::int64_t time = kBoot;
    std::int64_t shown = 0;
    clock.Next(CounterAt(time), 7);
    for (const std::int64_t pause : {999'999'998, 1, 500'000'000, 999'000'000, 700'000'000, 300'000'000}) {
        time += pause;
        ASSERT_EQ(clock.Next(CounterAt(time), 7), time - kBoot);
    }
    for (const std::int64_t pause : {1'200'000'000LL, 17'300'000'000LL, 900'000'000LL, 3'000'000'001LL}) {
        time += pause;
        shown = clock.Next(CounterAt(time), 7);
        ASSERT_LE(shown, time - kBoot);
        ASSERT_EQ((time - kBoot - shown) % kCounterPeriod, 0);
    }
    // A restarted device may be noticed by seconds that cannot belong to the previous run.
    CounterClock restarted;
    restarted.Next(CounterAt(100 * kSecond + 999'999'999), 1);
    restarted.Next(CounterAt(2 * kSecond + 3), 1);
    EXPECT_GT(restarted.Breaks(), 0U);
}

TEST(CounterTimes, OfAThreadThatWasQuietForASecondMayBeThoseOfAWriterThatWasHeldUp) {
    // The second thread writes once, stamped at the first place where its counter fits, or a second before.
    CounterClock clock;
    const auto at = [&](std::int64_t time, std::uint32_t thread) {
        clock.Next(CounterAt(kBoot + time), thread);
        return clock.HeldUp();
    };
    at(0, 1);
    EXPECT_EQ(at(100 * kMillisecond, 2), 1) << "how long it waited for its first store, nothing tells";
    for (std::int64_t time = 300 * kMillisecond; time < 1500 * kMillisecond; time += 300 * kMillisecond) {
        EXPECT_EQ(at(time, 1), 0);
    }
    EXPECT_EQ(at(1500 * kMillisecond, 2), 1);
    EXPECT_EQ(at(1501 * kMillisecond, 2), 0) << "stamped after it had stored that";
    EXPECT_EQ(at(1800 * kMillisecond, 1), 0);
    EXPECT_EQ(clock.MostOvercounted(), 0);
}

TEST_F(LogTimes, BetweenTwoRollsOfOneProcessAreExactOrTellWhatPassedUnseen) {
    const std::int64_t offset = kDay + 40'000 * kSecond - kBoot + 123'456'789;
    const std::vector<std::int64_t> times{kBoot, kBoot + 300 * kMillisecond,
                                          kBoot + 6'400 * kMillisecond, // six seconds without a line
                                          kBoot + 6'900 * kMillisecond, // rolled
                                          kBoot + 7'000 * kMillisecond};
    const auto line = [&](std::size_t i) { return Line(times[i], "<WARN> <A> line"); };
    WriteFile("a.log.1", Calibration(times[0], times[0] + offset) + line(1) + line(2));
    const Logs rolled = LogsOf(Calibration(times[3], times[3] + offset) + line(4));
    ASSERT_EQ(rolled.entries.size(), times.size());
    const auto lateness = [&](std::size_t i) { return times[i] + offset - rolled.entries[i].time; };
    for (std::size_t i = 0; i < times.size(); ++i) {
        EXPECT_EQ(lateness(i) - lateness(0), i == 2 ? 6 * kCounterPeriod : 0) << i;
        EXPECT_EQ(rolled.entries[i].process, 1U);
    }
    EXPECT_GE(lateness(0), 0);
    EXPECT_LE(lateness(0), rolled.entries[0].certainty.originLater);
    EXPECT_EQ(rolled.entries[1].certainty.ProvenLater(), 6);
    EXPECT_EQ(rolled.entries[1].certainty.ProvenEarlier(), 1) << "the first that its thread stored";
    EXPECT_EQ(rolled.entries[2].certainty.ProvenEarlier(), 0);
    EXPECT_EQ(rolled.entries[4].certainty.later, Certainty::kUnbounded);
    EXPECT_EQ(rolled.entries[4].certainty.ProvenEarlier(), Certainty::kUnbounded) << "set since, perhaps";
    EXPECT_EQ(rolled.entries[4].certainty.premise, Certainty::Premise::kClockNotSet);
    EXPECT_EQ(rolled.set.LikelyBoundOf(rolled.entries[4])->later, 0);
}

TEST_F(LogTimes, OfAProcessWhoseClockWasSetBeforeARollAreOfOneProcessAndBoundByNothing) {
    const std::int64_t filled = kBoot + 300 * kMillisecond;
    const std::string full = Opening(kBoot) + Line(kBoot + kMillisecond, "<WARN> <A> first") +
                             Line(filled, "<WARN> <A> filled it");
    WriteFile("a.log.1", full);
    const auto log = [&](std::int64_t at, std::int64_t set, std::uint32_t thread) {
        return LogsOf(Calibration(at, at + kOffset + set, thread) +
                      Line(at + kMillisecond, "<WARN> <A> newest", thread));
    };
    // Whatever the clock was set to, the file's number orders. Half of 65.536 ms fits no number of seconds.
    for (const std::int64_t set :
         {-3600 * kSecond - 25 * kMillisecond, 33 * kMillisecond, 7200 * kSecond + 33 * kMillisecond}) {
        const Logs logs = log(filled + 40 * kMillisecond, set, 1);
        EXPECT_EQ(logs.Messages(), "C|first|filled it|C|newest|");
        ASSERT_EQ(logs.set.Processes().size(), 1U) << set;
        EXPECT_EQ(logs.entries[1].certainty.later, Certainty::kUnbounded);
        EXPECT_EQ(logs.entries[1].certainty.earlier, Certainty::kUnbounded);
        EXPECT_EQ(logs.entries[4].certainty.earlier, 0);
        EXPECT_TRUE(Has(logs.set.ClockStatement(), "clock-set-or-boot"));
        // Each on the clock of its moment.
        const LogProcess& process = logs.set.Processes()[0];
        EXPECT_NEAR(static_cast<double>(process.First() - kBoot - kOffset), 0, 1e9);
        EXPECT_NEAR(static_cast<double>(process.Last() - filled - kOffset - set), 0, 1e9);
    }
    // A device that had run for less time than the backup shows was started anew.
    const std::int64_t day = 86'400 * kSecond;
    const auto boots = [&](std::int64_t inBackup) {
        const std::int64_t opened = day + 300 * kMillisecond;
        WriteFile("a.log.1", Opening(opened) + Line(inBackup, "<WARN> <A> first") +
                                 Line(day + 1'960 * kMillisecond, "<WARN> <A> filled it"));
        WriteFile("a.log", Calibration(20 * kSecond + 3000, day + kOffset + 3600 * kSecond) +
                               Line(20 * kSecond + 3007, "<WARN> <A> newest"));
        return Logs({"a.log"}).set.Processes().back().boot;
    };
    EXPECT_EQ(boots(day + 800 * kMillisecond), 1U) << "nothing tells";
    EXPECT_EQ(boots(day + 999'999'000), 2U) << "no counter is so high before a day";
    // Not so long after the last line, and not by another thread.
    WriteFile("a.log.1", full);
    EXPECT_EQ(log(filled + 400 * kMillisecond, -3600 * kSecond - 25 * kMillisecond, 1).set.Processes().size(),
              2U);
    EXPECT_EQ(log(filled + 40 * kMillisecond, -3600 * kSecond - 25 * kMillisecond, 2).set.Processes().size(),
              2U);
    // Nor where the backup was not full: the file after it is longer.
    const std::int64_t opened = filled + 40 * kMillisecond;
    WriteFile("a.log", Calibration(opened, opened + kOffset + 33 * kMillisecond) +
                           Line(opened + 5, "<WARN> <A> " + std::string(300, '.')));
    EXPECT_EQ(EvidenceCodeOf(Logs({"a.log"}).set.Processes().back()), std::string("clocks"));
}

TEST_F(LogTimes, OfAnAppendedLogKnowTheirProcessAndBootAndNarrowNothingAcrossThem) {
    const auto process = [](std::int64_t time, std::int64_t toWall, std::uint32_t thread) {
        return Calibration(time, time + toWall) + Line(time + 5, "<WARN> <A> one", thread) +
               Line(time + 990'000, "<WARN> <A> two", thread);
    };
    // Restarted in the same boot; then the device, whose clock begins anew; then once more, with a date
    // before the last one.
    const Logs logs = LogsOf(process(kBoot, kOffset, 1) + process(kBoot + 9 * kSecond, kOffset, 2) +
                             process(20 * kSecond, kOffset + kBoot, 3) +
                             process(30 * kSecond + 7 * kMillisecond, kDay + 33 * kMillisecond, 4));
    ASSERT_EQ(logs.Messages(), "C|one|two|C|one|two|C|one|two|C|one|two|");
    const std::vector<std::string> evidence{"first", "clocks-fit", "uptime", "date"};
    const std::vector<std::size_t> boots{1, 1, 2, 3};
    ASSERT_EQ(logs.set.Processes().size(), evidence.size());
    for (std::size_t i = 0; i < logs.entries.size(); ++i) {
        EXPECT_EQ(logs.entries[i].process, i / 3 + 1) << i;
        EXPECT_EQ(logs.entries[i].boot, boots[i / 3]) << i;
        EXPECT_EQ(logs.entries[i].certainty.later, Certainty::kUnbounded) << i;
        EXPECT_FALSE(logs.entries[i].part->overwritten);
    }
    for (std::size_t i = 0; i < evidence.size(); ++i) {
        EXPECT_EQ(EvidenceCodeOf(logs.set.Processes()[i]), evidence[i]);
    }
    EXPECT_EQ(logs.set.LikelyBoundOf(logs.entries[2])->assuming, std::string("clock-not-set"));
    EXPECT_NEAR(static_cast<double>(logs.set.LikelyBoundOf(logs.entries[2])->later), 9, 1);

    // Of the first process one of two threads is left. The next one has the same threads; or it has others,
    // far from the first one's, which writes on.
    for (const std::uint32_t away : {0U, 1U << 30}) {
        const std::int64_t opened = kBoot + 9 * kSecond;
        WriteFile("b.log",
                  process(kBoot, kOffset, 1) + Calibration(opened, opened + kSecond / 4 + kOffset, 9 + away) +
                      Line(opened + 5, "<WARN> <A> one", 1) + Line(opened + 9, "<WARN> <A> two", 2 + away));
        const Logs again({"b.log"});
        ASSERT_EQ(again.Messages(), "C|one|two|C|one|two|");
        EXPECT_EQ(again.entries[4].process, away == 0 ? 2U : 1U);
        EXPECT_EQ(again.entries[4].boot, away == 0 ? 2U : 1U);
        EXPECT_EQ(again.entries[5].process, 2U);
        EXPECT_EQ(again.entries[5].boot, 2U);
        EXPECT_EQ(FactsOf(again.set.Processes()[1]).linesProbable, away == 0);
    }
}

TEST_F(LogTimes, OfADeviceWhoseClockBeginsWithEachBootTellNoBoots) {
    const std::int64_t began = kDay; // and so again after each boot, whatever time has passed
    const auto boot = [&](std::int64_t uptime, std::uint32_t thread) {
        return Calibration(uptime, began + uptime, thread) + Line(uptime + 50, "<WARN> <A> line", thread);
    };
    const Logs two = LogsOf(boot(20 * kSecond + 123'456'789, 1) + boot(25 * kSecond + 300'000'111, 2));
    EXPECT_EQ(EvidenceCodeOf(two.set.Processes().at(1)), std::string("no-clock"));
    EXPECT_EQ(two.entries.back().boot, 2U);
    // With the identifiers of the boot before, it is no roll, unless the line that filled the log shows it.
    WriteFile("a.log.1", boot(20 * kSecond + 123'456'789, 1));
    EXPECT_EQ(LogsOf(boot(25 * kSecond + 300'000'111, 1)).set.Processes().size(), 2U);
    EXPECT_EQ(LogsOf(boot(20 * kSecond + 125'456'789, 1)).set.Processes().size(), 1U);
    // It does, too, if a full log's roll took its time and the date is just as much later.
    for (const std::int64_t later : {3 * kSecond, std::int64_t{0}}) {
        const Logs logs = LogsOf(boot(20 * kSecond + 173'456'789 + later, 1));
        EXPECT_EQ(logs.set.Processes().size(), later == 0 ? 1U : 2U);
    }
    // Nor do such dates join two logs.
    WriteFile("b.log", boot(25 * kSecond + 300'000'111, 1));
    const Logs both({"a.log", "b.log"});
    ASSERT_EQ(both.set.Processes().size(), 2U);
    EXPECT_EQ(EvidenceCodeOf(both.set.Processes()[1]), std::string("no-clock"));
    EXPECT_EQ(FactsOf(both.set.Processes()[1]).Doubts(), std::vector<std::string>{"boot"});
}

TEST_F(LogTimes, OfLogsWhoseClocksContradictEachOtherAreOfTwoBoots) {
    const auto log = [&](std::int64_t at, std::int64_t away, std::uint32_t thread) {
        return Calibration(at, at + kOffset + away, thread) +
               Line(at + 500 * kMillisecond, "<WARN> <A> line", thread);
    };
    WriteFile("a.log", log(kBoot, 0, 1));
    for (const std::int64_t away : {3 * kMillisecond, 33 * kMillisecond}) {
        WriteFile("b.log", log(kBoot + kMillisecond, away, 2));
        const Logs logs({"a.log", "b.log"});
        const LogProcess& other = logs.set.Processes().back();
        EXPECT_EQ(other.boot, away < 5 * kMillisecond ? 1U : 2U);
        EXPECT_EQ(EvidenceCodeOf(other), std::string(away < 5 * kMillisecond ? "overlaps" : "clocks"));
        EXPECT_TRUE(FactsOf(other).doubtful);
    }
}

TEST_F(LogTimes, OfAProcessThatWritesTwoLogsAreOfOneClock) {
    const std::vector<std::int64_t> turns{0, 1, 1, 0, 1, 0, 0, 1, 0, 1};
    std::string logs[2];
    std::string merged;
    std::int64_t time = kBoot;
    for (int log = 0; log < 2; ++log, time += 300 * kMillisecond) {
        logs[log] = Opening(time);
        merged += "C|";
    }
    for (std::size_t i = 0; i < turns.size(); ++i, time += 10 * kMillisecond) {
        logs[turns[i]] += Line(time, "<WARN> <A> " + std::to_string(i));
        merged += std::to_string(i) + "|";
    }
    WriteFile("b.log", logs[0]);
    WriteFile("a.log", logs[1]);
    const Logs read({"a.log", "b.log"});
    EXPECT_EQ(read.Messages(), merged); // whatever the cut dates say of each
    ASSERT_EQ(read.set.Processes().size(), 1U);
    // Two processes with the same thread identifiers would look like it.
    EXPECT_EQ(FactsOf(read.set.Processes()[0]).Doubts(), std::vector<std::string>{"one-process"});
    EXPECT_EQ(read.entries.back().time - read.entries.front().time, time - 10 * kMillisecond - kBoot);
}

TEST_F(LogTimes, OfOtherLogsAreInDoubtOnceOneShowsThatTheClockWasSet) {
    const std::int64_t set = -3600 * kSecond - 25 * kMillisecond;
    const auto at = [](int i) { return kBoot + i * (100 * kMillisecond); };
    // The second line of each is written after the setting, which the first log's roll shows.
    WriteFile("a.log.1", Opening(at(0)) + Line(at(2), "<WARN> <A> a1") + Line(at(6), "<WARN> <A> a2"));
    WriteFile("a.log", Calibration(at(6) + kMillisecond, at(6) + kMillisecond + kOffset + set) +
                           Line(at(8), "<WARN> <A> a3"));
    for (const std::uint32_t thread : {1U, 2U}) { // of the same process, and of another
        const std::int64_t begin = kBoot - 50 * kMillisecond;
        WriteFile("b.log", Opening(begin, thread) + Line(begin + kMillisecond, "<WARN> <B> b1", thread) +
                               Line(at(7), "<WARN> <B> b2", thread));
        // Opened after the setting, on the clock as it is since then.
        WriteFile("c.log",
                  Calibration(at(7), at(7) + kOffset + set, thread) + Line(at(8), "<WARN> <B> c1", thread));
        const Logs logs({"a.log", "b.log", "c.log"});
        for (std::size_t i = 0; i < logs.entries.size(); ++i) {
            const bool isInDoubt = logs.messages[i] == "b2" || logs.entries[i].part->file == 1;
            EXPECT_EQ(logs.entries[i].certainty.earlier, isInDoubt ? Certainty::kUnbounded : 0)
                << logs.messages[i] << " " << thread;
        }
        EXPECT_EQ(logs.entries.size(), 10U);
        EXPECT_EQ(logs.set.Processes().size(), thread == 1 ? 1U : 3U);
        EXPECT_EQ(logs.set.Processes().back().boot, 1U);
    }
}

TEST_F(LogTimes, OfAProcessWithoutADateAreNotInvented) {
    const std::int64_t later = kBoot + 100 * kSecond;
    WriteFile("a.log",
              Line(kBoot, "<WARN> <A> cut off") + Opening(later, 2) + Line(later + 5, "<WARN> <A> again", 2));
    WriteFile("b.log", Opening(later, 3) + Line(later + 9, "<WARN> <B> other", 3));
    const Logs logs({"a.log", "b.log"});
    EXPECT_EQ(logs.Messages(), "cut off|C|C|again|other|");
    ASSERT_EQ(logs.set.Processes().size(), 3U);
    EXPECT_FALSE(logs.set.Processes()[0].KnownBoot());
    EXPECT_FALSE(FactsOf(logs.set.Processes()[0]).first);
    EXPECT_EQ(logs.set.Processes()[1].KnownBoot(), 1U);
    EXPECT_EQ(logs.set.Processes()[2].KnownBoot(), 1U);
    EXPECT_EQ(logs.entries[0].process, 1U);
    EXPECT_FALSE(logs.entries[0].boot);
    EXPECT_TRUE(logs.entries[0].certainty.assumed);
    for (const Finding& finding : logs.set.ClockStatement()) {
        if (finding.sentence.starts_with("Process 1,")) {
            EXPECT_TRUE(finding.sentence.starts_with("Process 1, boot unknown, when is not known"))
                << finding.sentence;
        }
    }
}

TEST_F(LogTimes, OfAProcessThatTracedAnOpeningGoOn) {
    const std::int64_t later = kBoot + 100 * kSecond + 3 * kMillisecond;
    const std::string own = Opening(kBoot, 7);
    const auto other = [&](std::uint32_t thread) { return Opening(later, thread); };
    const auto processes = [&](const std::string& quoted) {
        std::string holder = Line(kBoot + 600 * kMillisecond, "<WARN> <A> read:", 2);
        holder.resize(holder.size() - 2);
        const Logs logs = LogsOf(own + Line(kBoot + 5, "<WARN> <A> one", 2) + holder + quoted +
                                 Line(kBoot + 605 * kMillisecond, "<WARN> <A> again", 2));
        EXPECT_EQ(logs.set.Sources()[0].findings.damage.size(), 0U);
        EXPECT_EQ(Has(logs.set.Sources()[0].findings.remarks, "opening-or-text"),
                  logs.set.Processes().size() > 1);
        EXPECT_EQ(FactsOf(logs.set.Processes().back()).linesProbable, logs.set.Processes().size() > 1);
        return logs.set.Processes().size();
    };
    for (const std::string before : {" ", "\n"}) {
        EXPECT_EQ(processes(before + other(1U << 31)), 1U); // Far from the threads that write on.
        EXPECT_EQ(processes(before + own), 1U);
        EXPECT_EQ(processes(before + other(7).substr(0, other(7).size() - 2) + "\n"), 1U);
        EXPECT_EQ(processes(before + other(8)), 2U); // Perhaps of a process with the same identifiers.
    }
}

TEST_F(LogTimes, OfAProcessThatOpenedATornLogAreFound) {
    const std::int64_t later = kBoot + 100 * kSecond + 3 * kMillisecond;
    for (const std::string torn :
         {"page ", "page 1", "page 12", "page 123", "page 1234567", "page 3000000000"}) {
        std::string first = Line(kBoot + 5, "<WARN> <A> " + torn);
        first.resize(first.size() - 2);
        const Logs logs =
            LogsOf(Opening(kBoot) + first + Opening(later) + Line(later + 5, "<WARN> <A> again"));
        EXPECT_EQ(logs.Messages(), "C|" + torn + "|C|again|");
        EXPECT_EQ(logs.set.Sources()[0].findings.damage.size(), 1U);
        ASSERT_EQ(logs.set.Processes().size(), 2U);
        EXPECT_NEAR(static_cast<double>(logs.entries[3].time - (later + kOffset)), 0, 1e9);
    }
    // Digits at a line's start may be another counter's. Beyond four years of uptime they are; else nothing
    // that rests on the counter is a fact, unless another date fits it.
    for (const std::string torn : {"1", "5", "87"}) {
        for (const std::int64_t opened : {later, later + 188 * kMillisecond}) {
            const auto from = [&](std::int64_t time) {
                return Opening(time) + Line(time + 5, "<WARN> <A> again", 2);
            };
            const std::string first = Opening(kBoot) + Line(kBoot + 5, "<WARN> <A> one");
            const Logs logs = LogsOf(first + torn + from(opened) + from(opened + 77 * kSecond));
            const bool told = logs.Messages().starts_with("C|one|" + torn + "|C|again");
            EXPECT_EQ(told, opened != later) << torn;
            EXPECT_EQ(logs.set.Sources()[0].findings.damage.size(), told ? 1U : 0U);
            const LogEntry& line = logs.entries[told ? 4 : 3];
            const std::int64_t early = line.certainty.earlier * kSecond + kMillisecond;
            EXPECT_LE(line.time - (opened + 5 + kOffset), early) << torn;
            for (const LogProcess& process : logs.set.Processes()) {
                EXPECT_NE(process.evidence, BootEvidence::kUptime) << torn;
                EXPECT_NE(process.evidence, BootEvidence::kClocks) << torn;
            }
        }
    }
    // Cut in the middle of its date, a calibration line dates nothing, but two processes it tells.
    const std::string whole = Opening(kBoot);
    for (std::size_t end = whole.find("now=") + 1; end < whole.find(", type="); ++end) {
        const Logs logs = LogsOf(whole.substr(0, end) + Opening(later) + Line(later + 5, "<WARN> <A> again"));
        ASSERT_EQ(logs.set.Processes().size(), 2U) << end;
        EXPECT_FALSE(logs.set.Processes()[0].IsDated()) << end;
    }
}

TEST_F(LogTimes, OfARewoundLogAreOfOneProcessWhicheverOfItsThreadsAnOldRoundShows) {
    std::int64_t time = kBoot;
    const auto round = [&](std::size_t lines, std::uint32_t last, std::size_t longer) {
        std::string text =
            Opening(time) + Line(time - 3 * kMillisecond, "<WARN> <A> filled" + std::string(longer, '.'), 1);
        for (std::size_t i = 0; i < lines; ++i) {
            time += 7 * kMillisecond;
            text += Line(time, "<WARN> <A> line", i + 3 < lines ? 1 + i % 3 : last);
        }
        time += 300 * kMillisecond;
        return text;
    };
    std::string log = round(60, 3, 0);
    for (const std::string& newer : {round(58, 2, 15), round(56, 1, 30)}) {
        log.replace(0, newer.size(), newer); // A header is cut where they meet.
    }
    const Logs logs = LogsOf(log);
    EXPECT_TRUE(Has(logs.set.Sources()[0].findings.remarks, "rewound"));
    EXPECT_EQ(logs.entries.front().part->threads, std::vector<std::uint32_t>{3});
    EXPECT_EQ(logs.set.Processes().size(), 1U);
    // Where the newest lines end for certain, their date bounds older ones as long as the rounds are what
    // they seem. A manifest bounds them in any case.
    log = round(300, 3, 0);
    const std::string newest = round(40, 1, 0);
    WriteFile("a.log", newest + log.substr(log.find(":000>", newest.size()) - 3));
    const std::int64_t moment = time + 49 * kSecond;
    const Certainty older = Logs({"a.log"}).entries[1].certainty;
    EXPECT_EQ(older.LikelyLater(), 3);
    EXPECT_EQ(older.premise, Certainty::Premise::kRoundsAsFound);
    const Logs collected({"a.log"}, CollectedMoment{CounterAt(moment), moment + kOffset, kOffset});
    EXPECT_EQ(collected.entries[1].certainty.ProvenLater(), 52);
}

TEST_F(LogTimes, OfARewoundLogThatGoesOnInsideACounterAreInTheirOrder) {
    for (const std::size_t digitsLost : {1U, 2U, 3U}) {
        std::int64_t time = kBoot + 700 * kMillisecond;
        const auto round = [&](int lines) {
            std::string text = Opening(time) + Line(time - 200'000, "<WARN> <A> filled");
            for (int i = 0; i < lines; ++i) {
                text += Line(time += 3000, "<WARN> <A> old");
            }
            return text;
        };
        const std::string old = round(200);
        time += 20 * kMillisecond;
        std::string log = round(100);
        const std::size_t newer = static_cast<std::size_t>(std::count(log.begin(), log.end(), '\n')) + 1;
        const std::size_t cut = old.find('\n', log.size() + 60) + 1 + digitsLost;
        const std::string last = Line(time, "<WARN> <A> new");
        log += last.substr(0, last.size() - 2) + std::string(cut - log.size() - last.size(), '.') + "\r\n";
        log += old.substr(cut);
        const Logs logs = LogsOf(log);
        ASSERT_GT(logs.entries.size(), newer) << digitsLost;
        for (std::size_t i = 0; i < logs.entries.size(); ++i) {
            EXPECT_EQ(logs.entries[i].part->overwritten, i + newer < logs.entries.size()) << i << digitsLost;
        }
    }
}

TEST_F(LogTimes, OfAFullLogThatProcessesOpenedAreInTheirOrder) {
    // The first opening's counter is 305086421. A round may have ended inside it, so that it begins with 0.
    const std::int64_t first = kBoot + 20 * kSecond + 306 * kMillisecond;
    const std::int64_t second = first + 9 * kSecond;
    const std::int64_t rewound = second + 5 * kSecond;
    for (const bool buffered : {true, false}) {
        for (const std::size_t digitsLost : {0U, 1U, 2U, 3U}) {
            std::string old = Opening(kBoot);
            for (int i = 1; i <= 40; ++i) {
                old += Line(kBoot + i * (20 * kMillisecond), "<WARN> <A> old and full of words");
            }
            std::string newer = Opening(rewound, 3);
            for (std::uint32_t i = 1; i <= 20; ++i) {
                newer += Line(rewound + i * (30 * kMillisecond), "<WARN> <A> new", 2 + i % 2);
            }
            newer.resize(newer.size() - 2);
            const std::size_t cut =
                old.find('\n', newer.size()) + 1 + std::string("000000000 <0x00000001:000> ").size() + 20;
            newer += std::string(cut - newer.size() - 2, '.') + "\r\n";
            const auto opening = [&](std::int64_t at, std::uint32_t thread) {
                return Opening(at, thread) +
                       (buffered ? "" : Line(at + kMillisecond, "<WARN> <A> first", thread));
            };
            // Of a process with the threads of the one before, no older line is known to be either's.
            const Logs alike = LogsOf(newer + old.substr(cut) + opening(second, 1));
            EXPECT_FALSE(alike.entries.front().process);
            EXPECT_TRUE(FactsOf(alike.set.Processes().front()).linesProbable);
            // With a larger maximum, the next one goes on at the end.
            constexpr std::int64_t kLater = 20 * kSecond;
            std::string later = Opening(rewound + kLater, 7);
            for (int i = 1; i <= 6; ++i) {
                later += Line(rewound + kLater + i * kMillisecond, "<WARN> <A> later", 7);
            }
            const std::size_t inThread = old.find('\n', cut) + std::string("\n000000000 <0x0").size();
            std::string log = newer + old.substr(inThread);
            const Logs grown = LogsOf(log.append(opening(second, 2)).append(later));
            EXPECT_TRUE(grown.messages.back().starts_with("later"));
            EXPECT_FALSE(grown.entries.back().part->overwritten);
            ASSERT_EQ(grown.set.Processes().size(), 3U);
            EXPECT_LT(grown.set.Processes()[1].Last(), grown.set.Processes()[2].First());
            const Logs logs =
                LogsOf(newer + old.substr(cut) + opening(first, 4).substr(digitsLost) + opening(second, 2));
            const std::string which = std::to_string(digitsLost) + (buffered ? " buffered" : "");
            EXPECT_TRUE(logs.set.Sources()[0].findings.damage.empty()) << which;
            EXPECT_TRUE(Has(logs.set.Sources()[0].findings.remarks, "rewound")) << which;
            ASSERT_EQ(logs.set.Processes().size(), 3U) << which;
            EXPECT_EQ(EvidenceCodeOf(logs.set.Processes()[2]),
                      std::string(digitsLost == 0 ? "clocks-fit" : "unknown"));
            EXPECT_FALSE(Has(logs.set.ClockStatement(), "clock-set")) << which;
            EXPECT_FALSE(Has(logs.set.ClockStatement(), "silence"))
                << "what was written then is lost " << which;
            EXPECT_TRUE(logs.messages.back().starts_with("new")) << which;
            EXPECT_FALSE(logs.entries.back().part->overwritten) << which;
        }
    }
}

TEST_F(LogTimes, OfALogThatHoldsTextsLikeCutLinesAreOfOneRound) {
    for (const std::string text :
         {"<a:Action> <a:To>x</a:To>", "<WARN> <Engine> quoted", "<0x00000001:000> <WARN> <A> quoted"}) {
        for (const std::string end : {"\n", "\r\n"}) {
            std::string log = Opening(kBoot);
            for (int i = 0; i < 40; ++i) {
                log += Line(kBoot + (i + 1) * (7 * kMillisecond), "<WARN> <A> line");
                log += i == 20 ? text + end : "";
            }
            // Nor when another process opens the log after such a text.
            const std::int64_t later = kBoot + 300 * kMillisecond;
            log.append(text).append(end).append(Opening(later, 2));
            const Logs logs = LogsOf(log + Line(later + kMillisecond, "<WARN> <A> again", 2));
            EXPECT_TRUE(logs.set.Sources()[0].findings.remarks.empty()) << text;
            ASSERT_EQ(logs.set.Processes().size(), 2U) << text;
            EXPECT_EQ(logs.messages[1], "line");
            EXPECT_EQ(logs.entries[1].certainty.earlier, 0);
        }
    }
    // A process that opened it anew wrote over an older process's lines, of which a rest follows its own.
    std::string log = Opening(kBoot);
    for (int i = 0; i < 40; ++i) {
        const std::int64_t time = kBoot + (i + 1) * (7 * kMillisecond) + (i < 20 ? 0 : kSecond / 2);
        log += Line(time, "<WARN> <A> line").substr(i == 20 ? 40 : 0);
    }
    const Logs logs = LogsOf(log);
    EXPECT_TRUE(Has(logs.set.Sources()[0].findings.remarks, "hidden-seam"));
    EXPECT_TRUE(logs.entries.back().certainty.assumed);
    const std::vector<std::string> doubts{"lines", "times"};
    EXPECT_EQ(FactsOf(logs.set.Processes().at(0)).Doubts(), doubts);
}

TEST_F(LogTimes, OfLinesThatTheOpeningThreadDidNotWriteAreAssumedUnlessSomethingTellsTheirProcess) {
    const auto opening = [&](std::int64_t before, std::uint32_t opener) {
        return Opening(kBoot - before, opener);
    };
    std::string lines;
    for (int i = 0; i < 8; ++i) {
        lines += Line(kBoot + i * (30 * kMillisecond), "<WARN> <A> of one of two threads", 1 + i % 2);
    }
    const std::string late = opening(400 * kMillisecond, 9) + lines;
    const std::string atOnce = opening(9 * kMillisecond, 9) + lines;
    const auto appended = [&](std::uint32_t opener) {
        const std::int64_t later = kBoot + 7200 * kSecond;
        return Opening(later, opener) + Line(later + 40, "<WARN> <A> of a later process", 7);
    };
    struct Case {
        std::string log;
        bool may;
        std::string backup = {};
        std::string other = {};
    };
    const std::vector<Case> cases{
        {opening(400 * kMillisecond, 1) + lines, false},
        {late, true},
        {atOnce, false},
        // The older line was a byte longer.
        {opening(9 * kMillisecond, 9) + "\n" + lines, true},
        {late + appended(6), false},
        {late + appended(9), true}, // as a process that opens its log again may leave it
        {late, false, atOnce},
        {Opening(kBoot + kSecond) + lines, false, late},
        {late, false, {}, atOnce},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const std::string name = std::to_string(i) + ".log";
        std::vector<std::string> names{name};
        WriteFile(name, cases[i].log);
        if (!cases[i].backup.empty()) {
            WriteFile(name + ".1", cases[i].backup);
        }
        if (!cases[i].other.empty()) {
            names.push_back(names.front() + "b");
            WriteFile(names.back(), cases[i].other);
        }
        const Logs logs(names);
        const LogEntry& line = logs.entries[1];
        // The last backup's date tells that the clock was set after it, nothing tells when.
        EXPECT_EQ(line.certainty.assumed, cases[i].may || cases[i].backup == atOnce) << i;
        EXPECT_EQ(Has(logs.set.Sources()[0].findings.remarks, "silent-opener"), cases[i].may) << i;
        // The opening thread is of its process in any case, and so are the lines, if only probably.
        const LogProcess& process = logs.set.Processes().at(0);
        EXPECT_EQ(line.process, std::optional<std::size_t>(1)) << i;
        EXPECT_EQ(process.linesMayBeOlder, cases[i].may) << i;
        EXPECT_EQ(process.threads.size(), cases[i].log == cases[0].log ? 2U : 3U) << i;
    }
}

TEST_F(LogTimes, OfACopyAreToldOnce) {
    const std::string rolled = Opening(kBoot) + Line(kBoot + 7, "<WARN> <A> one");
    const std::string log = Opening(kBoot + 9) + Line(kBoot + 19, "<WARN> <A> two");
    WriteFile("b.log.1", rolled);
    WriteFile("b.log", log + Line(kBoot + 20, "<WARN> <A> three"));
    WriteFile("a.log", log + Line(kBoot + 20, "<WARN> <A> three")); // by its name the first
    WriteFile("earlier.log", log.substr(0, log.size() - 5));
    WriteFile("c.log", Opening(kBoot + 9) + Line(kBoot + 18, "<WARN> <A> other"));
    const Logs logs({"a.log", "b.log", "earlier.log", "c.log"});
    EXPECT_EQ(logs.Messages(), "C|one|C|C|other|two|three|");
    for (const LogSet::Source& source : logs.set.Sources()) {
        const std::string& path = source.file.Path();
        EXPECT_EQ(Has(source.findings.remarks, "same-lines"), path == "a.log" || path == "earlier.log")
            << path;
        EXPECT_TRUE(source.findings.damage.empty());
    }
}

TEST_F(LogTimes, OfAQueueComeFromItsDates) {
    WriteFile("queue",
              "01261024150926.100 <0x00000001:000> <WARN> <A> one01261024150926.-30000 <0x00000001:000> two"
              "01261024150926.50 <0x00000001:000> <INFO> <B> three\n");
    const Logs logs({"queue"});
    const auto& entries = logs.entries;
    ASSERT_EQ(entries.size(), 3U);
    const std::int64_t second = kDay + (15 * 3600 + 9 * 60 + 26) * kSecond;
    EXPECT_EQ(entries[0].time, second + 100'000);
    EXPECT_EQ(entries[1].time, second + 35'536'000);
    EXPECT_EQ(entries[2].time, second + 65'586'000);
    for (const LogEntry& entry : entries) {
        EXPECT_EQ(entry.certainty.later, 0); // It is one of sixteen moments of the second.
        EXPECT_GT(entry.certainty.originLater, 0);
    }
}

TEST_F(LogTimes, OfAFollowedLogAreMovedByNothingThatAMessageHolds) {
    const std::string log = Opening(kBoot, 7) + Line(kBoot + 600 * kMillisecond, "<WARN> <A> one", 2);
    const std::int64_t read = kBoot + 40 * kSecond + 605 * kMillisecond;
    const std::string holder = Line(read, "<WARN> <A> read:", 2);
    // Of another device, after the last line.
    const std::int64_t other = kBoot + 100 * kSecond + 3 * kMillisecond;
    const std::string quote = Calibration(other, read + 2 * kMillisecond + kOffset, 0x80000001) +
                              Line(other + 20 * kMillisecond, "<WARN> <B> quoted", 0x80000001);
    const std::string after = Line(read + 8 * kMillisecond, "<WARN> <A> after", 2);
    const std::int64_t now = read + 9 * kMillisecond + kOffset;
    /// The log grows by these; what is read at once is told together.
    const auto follow = [&](const std::vector<std::string>& pieces) {
        WriteFile("a.log", log);
        LogFollower follower("a.log");
        FollowClock clock("a.log", follower.Position());
        std::vector<LogEntry> entries;
        for (std::string content = log; const std::string& piece : pieces) {
            WriteFile("a.log", content += piece);
            follower.Poll([&](const FollowedLine& line) {
                LogEntry entry;
                entry.line = ParseLogLine(line.text);
                entry.continued = !entry.line.hasHeader;
                clock.Place(entry, line, now);
                entries.push_back(entry);
            });
        }
        return entries;
    };
    const auto isCertain = [](const LogEntry& entry) {
        return entry.certainty.earlier != Certainty::kUnbounded;
    };
    const std::vector<LogEntry> atOnce = follow({holder + quote + after});
    ASSERT_EQ(atOnce.size(), 4U);
    for (const std::size_t quoted : {1U, 2U}) {
        EXPECT_TRUE(atOnce[quoted].continued);
        EXPECT_FALSE(atOnce[quoted].line.hasHeader);
        EXPECT_EQ(atOnce[quoted].time, read + kOffset);
    }
    EXPECT_EQ(atOnce[3].time, read + 8 * kMillisecond + kOffset);
    EXPECT_TRUE(isCertain(atOnce[3]));
    // Line by line it is an opening as well as not, until a thread writes on that did before.
    const std::vector<LogEntry> oneByOne =
        follow({holder, quote.substr(0, quote.find('\n') + 1), quote.substr(quote.find('\n') + 1), after});
    EXPECT_FALSE(isCertain(oneByOne[1]));
    EXPECT_FALSE(isCertain(oneByOne[2]));
    EXPECT_EQ(oneByOne[3].time, read + 8 * kMillisecond + kOffset);
    EXPECT_TRUE(isCertain(oneByOne[3]));
    // No process writes what is still to come. Its message's next lines move nothing, either.
    const std::string future = Calibration(other, now + 3600 * kSecond, 0x80000001);
    const std::vector<LogEntry> early = follow({holder, future, quote.substr(quote.find('\n') + 1), after});
    EXPECT_TRUE(early[1].continued);
    EXPECT_FALSE(isCertain(early[2]));
    EXPECT_EQ(early[3].time, read + 8 * kMillisecond + kOffset);
    EXPECT_TRUE(isCertain(early[3]));
    // A process that opens the log is told on its clock, and without a doubt once enough lines are its own.
    std::string opened = Calibration(other, read + kOffset, 0x80000001);
    constexpr std::int64_t kApart = 20'000;
    for (int i = 0; i < 400; ++i) {
        opened += Line(other + i * kApart, "<WARN> <B> own", 0x80000001);
    }
    const std::vector<LogEntry> opening =
        follow({opened.substr(0, opened.find('\n') + 1), opened.substr(opened.find('\n') + 1)});
    EXPECT_FALSE(isCertain(opening[0]));
    EXPECT_TRUE(isCertain(opening.back()));
    const std::int64_t late = read + kOffset + 399 * kApart - opening.back().time;
    EXPECT_EQ(late % (kCutMicroseconds * 1000), 0);
    EXPECT_LE(std::abs(late - opening.back().certainty.originLater / 2),
              opening.back().certainty.originLater / 2);
}

TEST_F(LogTimes, AFollowerSeesEveryLineOnceWhateverBecomesOfTheFile) {
    for (const bool rolls : {false, true}) {
        WriteFile("a.log", "printed before\r\n");
        LogFollower follower("a.log");
        std::vector<std::string> seen;
        const auto look = [&] {
            follower.Poll([&](const FollowedLine& line) { seen.emplace_back(WithoutLineEnd(line.text)); });
        };
        look();
        EXPECT_TRUE(seen.empty());
        WriteFile("a.log", "printed before\r\nhalf of");
        look();
        EXPECT_TRUE(seen.empty());
        WriteFile("a.log", "printed before\r\nhalf of a line\r\n");
        look();
        EXPECT_EQ(seen, std::vector<std::string>{"half of a line"});
        seen.clear();
        CRollingLogFile log; // rewound or rolled between any two of its lines
        log.SetFileName(L"a.log");
        _TraceConfig config = LogConfig(L"log", L"a.log", 3000, rolls ? 1 : 0);
        log.Init(&config);
        log.Flush(true); // From now on each line is written at once.
        std::vector<std::string> expected;
        for (int turn = 0; turn < 120; ++turn) {
            for (int i = 0; i <= turn % 5; ++i) {
                std::string line =
                    "line " + std::to_string(expected.size()) + std::string(expected.size() % 60, '.');
                log.WriteDataRaw(reinterpret_cast<unsigned char*>(line.data()),
                                 static_cast<int>(line.size()));
                expected.push_back(line);
            }
            look();
        }
        std::erase_if(seen, [](const std::string& line) { return line.find("<CAL>") != std::string::npos; });
        EXPECT_EQ(seen, expected);
        log.Close();
    }
}
