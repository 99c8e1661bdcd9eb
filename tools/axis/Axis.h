#pragma once

#include "tools/axis/Processes.h"
#include "tools/base/Findings.h"
#include "tools/base/WallClock.h"
#include "tools/manifest/Manifest.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace NimaPost {

/// What a tie rests on.
enum class TieKind : unsigned char {
    kStart,    ///< nothing dated: the axis begins there
    kLine,     ///< the last dated line of the logs, after which a killed process may have gone on
    kHead,     ///< the head of a dump or crash log
    kCollected ///< the moment at which the files were collected
};

/// A counter and the moment at which it was read.
struct Tie {
    std::int64_t counter = 0;
    std::int64_t time = 0;
    TieKind kind = TieKind::kStart;
    /// By how much the moment may be later, since its date is cut.
    std::int64_t later = 0;
    /// The process on whose clock it is: the lines of that may all be later alike. Empty where its own date
    /// alone tells it.
    std::optional<std::size_t> process = {};
    /// The only process of that clock that had a log open at the moment; empty where several had, or none.
    std::optional<std::size_t> onlyWriter = {};
    bool fitsClosely = false; ///< that clock, so that chance is no likely reason
    /// By how many whole seconds the moment may be earlier or later, since the clock fits so badly that it
    /// may be another process's with the same threads: only the date's second is certain.
    std::int64_t within = 0;
    /// The process that has the head's thread, where that alone would make the head one of it.
    std::optional<std::size_t> notOf = {};
};

/// What the head of a dump or crash log tells.
struct Head {
    std::int64_t counter = 0;
    RawDate date;
    std::optional<std::uint32_t> thread; ///< that wrote it
    std::optional<std::uint64_t> bootCycle;
};

/// When a process of the logs ran, by a date and the counter that belongs to it.
struct LogClock {
    std::size_t process = 0;
    std::int64_t counter = 0;
    WallOffset wall; ///< the elapsed time is 0 at that counter
    std::int64_t first = 0;
    std::optional<std::int64_t> nextOpening; ///< when another process opened the log
};

/// What a manifest tells of the files.
struct Collection {
    CollectedMoment moment;
    std::int64_t utcOffset = 0;   ///< of local time, in nanoseconds
    std::set<std::size_t> mapped; ///< the files that a process had mapped at that moment
};

/// The library's call of a host's callback, as its ring shows it.
struct CallbackMark {
    std::uint32_t eventType = 0;
    std::uint32_t eventId = 0;
    std::int64_t time = 0;
};

/// The one time axis for everything in a folder: if anything is dated, nanoseconds since 1970, with local
/// time treated as UTC; otherwise nanoseconds since the first line or record.
class Axis {
  public:
    bool HasWall() const { return hasWall_; }
    void SetWall() { hasWall_ = true; }

    void Add(LogClock clock) { logClocks_.push_back(std::move(clock)); }
    /// What sources without a date are tied to: the newest moment that is known.
    void SetNewest(Tie tie) { newest_ = tie; }
    const std::optional<Tie>& Newest() const { return newest_; }
    /// What a file without a date is tied to.
    std::optional<Tie> TieOfFile(std::size_t file) const;

    void SetCollection(Collection collection);
    const std::optional<Collection>& Collected() const { return collection_; }

    /// The moment of a head: on the clock of the process that its thread belongs to, otherwise the date's
    /// earliest.
    Tie TieOf(const Head& head) const;
    static Tie TieByDate(const Head& head);

    void Add(CallbackMark mark) { callbacks_.push_back(mark); }
    /// The only call for this event; empty if there is none or more than one.
    std::optional<std::int64_t> CallOf(std::uint32_t eventType, std::uint32_t eventId) const;

    /// The processes of the folder, whichever source finds them. Text logs, which know the most, come first.
    Processes& AllProcesses() { return processes_; }
    const Processes& AllProcesses() const { return processes_; }

    /// Notes that the manifest and the files contradict each other.
    void Contradict(std::string what) { contradictions_.push_back(std::move(what)); }
    const std::vector<std::string>& Contradictions() const { return contradictions_; }

    /// How times were recovered and tied together.
    const std::vector<Finding>& Statement() const { return statement_; }
    void State(Finding finding) { statement_.push_back(std::move(finding)); }

  private:
    std::optional<std::size_t> OnlyWriterAt(const Tie& tie, std::optional<std::uint32_t> thread) const;

    bool hasWall_ = false;
    std::vector<LogClock> logClocks_;
    std::optional<Tie> newest_;
    std::optional<Collection> collection_;
    std::vector<CallbackMark> callbacks_;
    Processes processes_;
    std::vector<Finding> statement_;
    std::vector<std::string> contradictions_;
};

} // namespace NimaPost
