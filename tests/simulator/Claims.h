#pragma once

#include "tests/simulator/Checker.h"
#include "tools/base/Certainty.h"

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace Simulator {

/// What a reader says about a line or a record.
struct Claim {
    std::uint64_t serial = 0;      ///< 0 where it bears none
    std::string_view message = {}; ///< of a line
    std::optional<std::int64_t> time;
    std::int64_t later = kUnbounded; ///< whole seconds
    std::int64_t earlier = kUnbounded;
    NimaPost::Certainty::Premise premise = NimaPost::Certainty::Premise::kNothing; ///< of both
    std::int64_t originLater = 0;                                                  ///< nanoseconds
    bool exact = false;
    bool probably = false; ///< of the process
    bool bootGuessed = false;
    std::optional<std::size_t> process;
    std::optional<std::size_t> boot;

    static constexpr std::int64_t kUnbounded = -1;
};

/// What a reader says about a process.
struct Fact {
    std::set<std::uint32_t> threads;
    std::optional<std::size_t> boot;
    bool doubtful = false;      ///< of the boot
    bool probablyOne = false;   ///< else several
    bool linesProbable = false; ///< all but the first one
    bool recordsProbable = false;
    bool bootGuessed = false;
};

/// Which lines are in the files from their counters to their serial numbers, where a line can begin. Only of
/// them can a reader be expected to know anything.
class Whole {
  public:
    Whole(const Files& files, const Truth& truth);
    bool Has(std::uint64_t serial) const { return lines_.contains(serial); }
    const std::set<std::uint64_t>& Lines() const { return lines_; }
    /// Of the binary trace and the rings.
    const std::set<std::uint64_t>& Records() const { return records_; }
    /// Messages of calibration lines, which may stand behind torn text.
    const std::set<std::string>& Calibrations() const { return calibrations_; }

  private:
    void Scan(const std::string& content, const Truth& truth);
    void ScanCalibrations(const std::string& content, const Truth& truth);

    std::set<std::uint64_t> lines_;
    std::set<std::uint64_t> records_;
    std::set<std::string> calibrations_;
};

/// Whether a reader reads everything, so that each line must come and counts, or one log.
enum class Scope : unsigned char { kFolder, kLog };

/// Compares claims with the truth, in the order in which a reader makes them.
class Claims {
  public:
    Claims(const Truth& truth, const Whole& whole, Strictness strictness, Scope scope, Verdict& verdict)
        : truth_(truth), whole_(whole), strictness_(strictness), scope_(scope), verdict_(verdict) {}

    /// Places whose order is said to be uncertain.
    void Guessed(std::set<std::string> places) { guessed_ = std::move(places); }
    /// `place`: within it a reader promises order.
    void Add(const Claim& claim, const std::string& place);
    /// Of a crash log, by the counter in its head; whether it is said to be later than the one before.
    void AddCrash(const Claim& claim, std::int64_t counter, bool isLater);
    /// What is said about each process, from number 1 on.
    void Facts(std::vector<Fact> facts) { facts_ = std::move(facts); }
    /// What is said to tell each process's boot from that of the one before it in its log.
    void Told(std::map<std::size_t, std::string> evidence, bool inOneLog) {
        evidence_ = std::move(evidence);
        inOneLog_ = inOneLog;
    }
    /// It is said as a fact that the clock was set while a process wrote a log.
    void ClockWasSet();
    /// It is said as a fact that for so long no line was written while a process ran, between lines that are
    /// shown at these times, or that its clock was set forward.
    void AddGap(std::int64_t from, std::int64_t until, std::int64_t length);
    /// After the last one.
    void Finish();

  private:
    const Stamp* TruthOf(const Claim& claim) const;
    void CheckTime(const Claim& claim, const Stamp& stamp, const std::string& where);
    void CheckOrder(const Claim& claim, const Stamp& stamp, const std::string& place,
                    const std::string& where);
    void Count(const Claim& claim, const Stamp& stamp);
    void CheckThatAllCame();
    void CheckFacts();
    void CheckEvidence();

    /// A boot and how far its wall clock was ahead.
    using TrueClock = std::pair<int, std::int64_t>;
    static TrueClock ClockOf(const Stamp& stamp) { return {stamp.boot, stamp.wall - stamp.monotonic}; }

    struct Latest {
        std::int64_t ofProcess = INT64_MIN;
        std::map<std::uint32_t, std::int64_t> ofThread;
    };

    const Truth& truth_;
    const Whole& whole_;
    Strictness strictness_;
    Scope scope_;
    Verdict& verdict_;
    std::map<std::pair<std::string, int>, Latest> latest_;
    std::set<std::string> guessed_;
    std::pair<int, std::int64_t> lastCrash_{0, 0}; ///< boot and moment
    std::set<std::uint64_t> told_;
    std::set<std::string> toldCalibrations_;
    std::multimap<std::int64_t, const Stamp*> lines_; ///< by the times that are shown
    std::map<std::size_t, std::set<int>> processes_;  ///< the true ones of each number
    std::map<std::size_t, std::set<int>> boots_;
    std::map<int, std::set<std::size_t>> numbers_;          ///< of each true process
    std::map<std::size_t, std::set<TrueClock>> trueClocks_; ///< of each process's number
    std::map<std::size_t, std::string> evidence_;
    bool inOneLog_ = false;
    std::vector<Fact> facts_;
};

} // namespace Simulator
