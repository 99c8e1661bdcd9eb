#pragma once

#include "tools/base/Findings.h"
#include "tools/base/InputFile.h"
#include "tools/base/WallClock.h"
#include "tools/log/LogLine.h"

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// By how many whole seconds the true time may lie after or before the time shown.
struct Certainty {
    static constexpr std::int64_t kUnbounded = -1;
    std::int64_t later = kUnbounded;
    std::int64_t earlier = 0;

    bool Exact() const { return later == 0 && earlier == 0; }
};

/// A stretch of a log's file that was written in one go, from one calibration line to the next.
struct LogPart {
    std::size_t file = 0; ///< in the log set's files
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    /// Older than the lines in front of it: the rest of a file whose writer went on at its start.
    bool overwritten = false;
    std::optional<RawDate> date; ///< of the calibration line that it begins with
    std::int64_t firstCounter = 0;
    std::uint64_t stamped = 0; ///< lines with a header
    // From the part's own clock: how far it got.
    std::int64_t length = 0;
    std::int64_t lastCounter = 0;
    std::uint64_t clockBreaks = 0;
    // Where the part stands in the whole.
    std::size_t run = 0;    ///< parts of one run of the device's clocks
    std::int64_t start = 0; ///< of its first stamped line, nanoseconds on the run's axis
    Certainty certainty;
};

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
    /// file
    /// ("NAME.1" and so on) are taken in as well.
    void Add(const std::string& path, bool siblings);

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
    /// Files that could not be used, in sentences.
    const std::vector<std::string>& Unusable() const { return unusable_; }
    /// How times were recovered, in sentences.
    std::vector<std::string> ClockStatement() const;

    /// The counter and wall-clock time of the last line that has both, to which other records are tied.
    struct Anchor {
        std::int64_t counter;
        std::int64_t wall;
    };
    std::optional<Anchor> LastAnchor() const;

  private:
    void Survey(std::size_t index);
    void SurveyQueue(std::size_t index);
    void OrderFiles();
    void PlaceParts();

    std::vector<Source> sources_;
    std::vector<LogPart> parts_;
    std::vector<LogRun> runs_;
    std::vector<std::string> unusable_;
};

/// The wall-clock origin of a run, or 0.
std::int64_t OriginOf(const LogRun& run);

} // namespace NimaPost
