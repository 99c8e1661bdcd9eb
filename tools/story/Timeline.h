#pragma once

#include "tools/crash/CrashLog.h"
#include "tools/log/LogSet.h"
#include "tools/names/Names.h"
#include "tools/rings/Rings.h"
#include "tools/story/Folder.h"
#include "tools/systrace/SysTraceFile.h"

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

enum class EventKind : unsigned char { kText, kBinary, kRing };

/// How sure the time of an event is.
enum class Sureness : unsigned char {
    kExact,   ///< to the clock's own precision
    kShifted, ///< perhaps whole seconds later, or earlier, than shown
    kAssumed  ///< tied to another source by the assumption that less than a second lay between
};

/// Something that happened, from whichever file. The views hold until the visitor returns.
struct TimelineEvent {
    EventKind kind = EventKind::kText;
    std::int64_t time = 0; ///< on the timeline's axis
    Sureness sureness = Sureness::kExact;
    std::size_t source = 0; ///< in the folder's files
    std::optional<std::uint32_t> thread;
    std::string_view level; ///< "WARN", "level 1"; empty where there is none
    std::string_view name;  ///< tracer, component or ring
    std::string_view text;
    std::span<const std::uint32_t> arguments;
    std::string_view mark; ///< "torn", "entangled", "overwritten" or empty
};

/// Everything of a folder on one axis of time: nanoseconds since 1970, local time as if it were UTC, where
/// anything in the folder is dated; else nanoseconds since the first line or record.
class Timeline {
  public:
    /// Reads the folder's files, all but the text logs into memory. False, with the reason, where there is
    /// nothing.
    bool Read(const std::string& folder, const Names& names, std::string& problem);

    /// Hands over all events, source by source, in the order of time within each, until the visitor returns
    /// false.
    void ForEach(const std::function<bool(const TimelineEvent&)>& visitor) const;

    bool HasWall() const { return hasWall_; }
    const std::vector<FolderFile>& Files() const { return files_; }
    /// How times were recovered and tied together, in sentences.
    const std::vector<std::string>& ClockStatement() const { return statement_; }

    /// The newest crash log of the folder, and when it was written.
    const CrashLog* Crash() const { return crash_ ? &*crash_ : nullptr; }
    std::optional<std::int64_t> CrashTime() const { return crashTime_; }
    struct NamedStack {
        std::string file;
        StackTrace stack;
    };
    const std::vector<NamedStack>& Stacks() const { return stacks_; }
    /// The rings of the best source, and when each one's newest record was written.
    struct PlacedRings {
        std::size_t source;
        RingSet set;
        std::vector<std::int64_t> newest; ///< of each ring, on the axis
        Sureness sureness;
        /// Records that a better source has already, by ring and position.
        std::vector<std::vector<bool>> known;
    };
    const std::vector<PlacedRings>& Rings() const { return rings_; }

    /// What is damaged, with the files' names.
    Findings AllFindings() const;

  private:
    struct PlacedTrace {
        std::size_t source;
        SysTraceFile trace;
        std::int64_t origin; ///< of elapsed time, on the axis
        std::vector<bool> known;
    };
    /// A counter and the moment it stands for.
    struct Tie {
        std::int64_t counter;
        std::int64_t time;
    };

    bool AnythingRead() const;
    void ReadFile(std::size_t index, const Names& names);
    void ReadLogs();
    void PlaceUndatedRuns();
    void PlaceCrash();
    void PlaceTraces();
    void PlaceRings();
    void MarkKnownRecords();
    std::optional<Tie> TieOf(std::int64_t counter, const std::optional<RawDate>& date) const;
    bool VisitLogs(const std::function<bool(const TimelineEvent&)>& visitor) const;
    bool VisitTrace(const PlacedTrace& placed,
                    const std::function<bool(const TimelineEvent&)>& visitor) const;
    bool VisitRings(const PlacedRings& placed,
                    const std::function<bool(const TimelineEvent&)>& visitor) const;

    const Names* names_ = nullptr;
    std::vector<FolderFile> files_;
    LogSet logs_;
    std::vector<std::size_t> logFiles_;               ///< of each log source, its place in the folder's files
    std::map<std::size_t, std::int64_t> undatedRuns_; ///< where runs without a date were put
    std::optional<CrashLog> crash_;
    std::optional<std::int64_t> crashTime_;
    std::optional<Tie> tie_; ///< what traces and rings without a date are tied to
    std::vector<NamedStack> stacks_;
    std::vector<PlacedTrace> traces_;
    std::vector<PlacedRings> rings_;
    std::vector<std::string> statement_;
    bool hasWall_ = false;
};

} // namespace NimaPost
