#pragma once

#include "tools/base/Findings.h"
#include "tools/base/InputFile.h"
#include "tools/base/WallClock.h"
#include "tools/log/LogLine.h"
#include "tools/log/LogParts.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// Parts whose times are measured from one origin.
struct LogRun {
    std::optional<WallOffset> wall; ///< empty without any calibration line
};

/// A line with everything that was recovered about it.
struct LogEntry {
    LogLine line;
    std::string_view text; ///< the whole line without its end
    const LogPart* part = nullptr;
    std::uint64_t offset = 0;
    /// Nanoseconds since 1970 if `hasWall`, else since the first line of the run.
    std::int64_t time = 0;
    bool hasTime = false; ///< false until the first stamped line
    bool hasWall = false;
    Certainty certainty;
    bool continued = false; ///< has no header: belongs to the line before
};

/// One or more log files of the same device, put into the order of time.
class LogSet {
  public:
    /// A file that cannot be opened or is no log is reported and left out. With `siblings` the backups of a
    /// file ("NAME.1" and so on) are taken in as well.
    void Add(const std::string& path, bool siblings);
    /// Takes a file over that is open already. False, and the file stays with the caller, where it is no log.
    bool Take(InputFile& file);

    /// Finds the parts and their times; call once after the files have been added.
    void Arrange();

    /// Hands over every line in time order until the visitor returns false.
    void ForEach(const std::function<bool(const LogEntry&)>& visitor) const;

    struct Source {
        InputFile file;
        LogKind kind;
        Findings findings;
        std::uint64_t lines = 0;
        std::uint64_t overwrittenBytes = 0;
    };
    const std::vector<Source>& Sources() const { return sources_; }
    const std::vector<LogPart>& Parts() const { return parts_; }
    const std::vector<LogRun>& Runs() const { return runs_; }
    /// Files that could not be used.
    const Findings& Unusable() const { return unusable_; }
    /// Why a file could not be read to its end; empty where all of them could.
    Findings ReadProblems() const;
    /// How times were recovered.
    std::vector<Finding> ClockStatement() const;

    /// The counter and wall-clock time of the last line that has both, to which other records are tied.
    struct Anchor {
        std::int64_t counter;
        std::int64_t wall;
    };
    std::optional<Anchor> LastAnchor() const;

  private:
    bool Holds(const InputFile& file) const;
    void TakeBackups(const std::string& path);
    void AddUnusable(const InputFile& file);
    void Survey(std::size_t index);
    void SurveyQueue(std::size_t index);
    void OrderFiles();
    void PlaceParts();
    void PlaceDated(std::size_t index, std::optional<std::size_t> previous);
    void HangTails(const std::vector<std::size_t>& tails, std::size_t dated);
    void BeginRun(LogPart& part, LogRun run = {});

    std::vector<Source> sources_;
    std::vector<LogPart> parts_; ///< in the order of time, once arranged
    std::vector<LogRun> runs_;
    Findings unusable_;
};

/// The wall-clock origin of a run, or 0.
std::int64_t OriginOf(const LogRun& run);

} // namespace NimaPost
