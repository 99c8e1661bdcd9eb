#pragma once

#include "tools/base/Findings.h"
#include "tools/base/InputFile.h"
#include "tools/input/Evidence.h"
#include "tools/log/LogEntry.h"
#include "tools/log/LogFile.h"
#include "tools/log/LogParts.h"
#include "tools/log/LogProcess.h"
#include "tools/log/TimePlacer.h"
#include "tools/manifest/Manifest.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace NimaPost {

class JoinedLogs;
class LineSieve;

/// The log files of one device, put into the order of time. A log is a file with its backups, whose numbers
/// order them; logs of several processes are merged.
class LogSet {
  public:
    /// Takes the logs of a device over. Files that were named and cannot be opened or are no log are
    /// reported, but for an empty backup. What was added already, under whatever path, is not added again.
    void Add(Device& device);
    /// Takes a file over that is open already. False, and the file stays with the caller, where it is no log.
    bool Take(InputFile& file);

    /// Tells when the files were collected, if that is known.
    void SetCollected(const std::optional<CollectedMoment>& moment) { collected_ = moment; }
    /// Finds parts, processes and times; call once after the files have been added.
    void Arrange();
    /// The dates that are later than the moment at which the files were collected.
    std::size_t LaterThanCollected() const { return laterThanCollected_; }

    /// Hands over every line in the order of time until the visitor returns false. With a sieve, it need not
    /// hand over what that does not let pass.
    void ForEach(const std::function<bool(const LogEntry&)>& visitor, const LineSieve* sieve = nullptr) const;

    struct Source : LogFile {
        Findings findings;
        std::uint64_t lines = 0;
    };
    const std::vector<Source>& Sources() const { return sources_; }
    const std::vector<LogRun>& Runs() const { return runs_; }
    /// How often the wall clock had been set before the run's times, while its process ran.
    std::size_t SettingsBefore(std::size_t run) const { return settingsBefore_[run]; }
    /// From number 1 on, in the order of boots and time.
    const std::vector<LogProcess>& Processes() const { return processes_; }
    /// The parts of all logs, one log after the other.
    void ForEachPart(const std::function<void(const LogPart&)>& visitor) const;
    /// Of a line that nothing else bounds towards later.
    std::optional<LikelyBound> LikelyBoundOf(const LogEntry& entry) const;

    /// Files that could not be used.
    const Findings& Unusable() const { return unusable_; }
    /// Why a file could not be read to its end; empty where all of them could.
    Findings ReadProblems() const;
    /// How times were recovered. Processes have other numbers where others stand among them.
    std::vector<Finding> ClockStatement(std::span<const std::size_t> numbers = {}) const;

    /// The counter and wall-clock time of the last line that has both, to which other records are tied.
    struct Anchor {
        std::int64_t counter;
        std::int64_t wall;
        std::size_t process;
        std::size_t run;
    };
    std::optional<Anchor> LastAnchor() const;

  private:
    /// What files of one log have in common, and a file's place among them: backups with high numbers are
    /// the oldest.
    using LogKey = std::pair<std::string, LogKind>;
    using LogFiles = std::map<std::uint64_t, std::size_t, std::greater<>>;

    bool Holds(const InputFile& file) const;
    void AddUnusable(const InputFile& file);
    std::vector<LogPart> Survey(std::size_t index);
    std::vector<LogPart> SurveyQueue(std::size_t index);
    void LeaveCopiesOut(std::map<LogKey, LogFiles>& logs);
    void ArrangeProcesses();
    void SortProcesses(const JoinedLogs& joined);
    void DoubtClocksThatWereSet();

    std::vector<Source> sources_;
    std::vector<std::vector<LogPart>> logs_; ///< the parts of each, in the order of time
    std::vector<LogRun> runs_;
    std::vector<LogProcess> processes_;
    std::vector<ClockSetting> settings_;
    std::vector<std::size_t> settingsBefore_; ///< each run
    std::optional<CollectedMoment> collected_;
    std::size_t laterThanCollected_ = 0;
    Findings unusable_;
};

} // namespace NimaPost
