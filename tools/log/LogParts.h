#pragma once

#include "tools/base/Certainty.h"
#include "tools/base/CounterClock.h"
#include "tools/base/WallClock.h"
#include "tools/log/LogLine.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

namespace NimaPost {

/// How a part of a log follows the one before it.
enum class PartLink : unsigned char {
    kOpening,   ///< by a process that opened the log; what the part before tells binds nothing here
    kContinues, ///< by the same process in the same file: it went on at the file's start
    kRolled,    ///< by the same process, in the file after a backup
};

/// A line in the middle of a part at which reading can begin: with its header, and with the clock as it is
/// before that line.
struct ClockMark {
    std::uint64_t offset = 0;
    CounterClock clock;
};

/// A stretch of a log's file that was written in one go, from one calibration line to the next. What is read
/// from its lines stands first; how it is placed is found out later.
struct LogPart {
    std::size_t file = 0; ///< in the log set's files
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
    /// Older than the lines in front of it: the rest of a file whose writer went on at its start.
    bool overwritten = false;
    /// Somewhere in it older lines follow the newest, and nothing shows where.
    bool hidesSeam = false;
    /// The calibration line may be all that its process wrote, over the first line of an older log. That the
    /// others are the process's own is only probable.
    bool mayBeOlder = false;
    /// Its writer may have gone on at the file's start, or another written it over, without a sign.
    bool mayHideOlder = false;
    bool beginsInside = false; ///< its first line has no header: the message began before it
    /// It begins a file after a backup; that message is the backup's last one. Else it is lost.
    bool followsBackup = false;
    std::vector<ClockMark> marks;
    std::optional<LineStamp> calibration; ///< the line that it begins with
    std::optional<RawDate> date;          ///< of that line, if it is of use
    bool calibrationHasStamp = true;      ///< else its counter cannot be told from a torn line in front of it
    bool doubtful = false;                ///< a torn digit may stand in front of that counter
    bool mayBeQuote = false;              ///< that line may be a part of a message, and no process began
    bool openerIsSilent = false;          ///< its thread wrote none of the lines, though there are several
    bool restFollows = false;             ///< what is left of an older line stands after it
    std::optional<LineStamp> second;      ///< the stamped line after that one
    std::optional<LineStamp> last;
    std::int64_t firstCounter = 0;
    std::uint64_t stamped = 0;          ///< lines with a stamp
    std::vector<std::uint32_t> threads; ///< ascending
    // From the part's own clock: how far it got, and bounds of the device's clock in whole seconds.
    std::int64_t length = 0;
    std::int64_t lastCounter = 0;
    std::uint64_t clockBreaks = 0;
    std::int64_t overcounted = 0; ///< seconds at the most, in which silences may have passed instead
    std::int64_t mostFirstSecond = 0;
    std::int64_t leastLastSecond = 0;

    // Where the part stands in the whole.
    PartLink link = PartLink::kOpening;
    std::optional<std::size_t> process; ///< in the log set's processes; empty for the memory queue's file
    bool processIsKnown = true;         ///< else it may be one of several with the same threads
    /// Where the log rolled the clock was set, or the device restarted and a process with the same threads
    /// goes on here.
    bool mayBeRestart = false;
    std::size_t run = 0;    ///< parts whose times count from one origin
    std::int64_t start = 0; ///< of its first stamped line, nanoseconds on the run's axis
    /// When the next process opened the log; of the wall clock.
    std::optional<std::int64_t> nextOpening;
    std::int64_t queueFirst = 0; ///< time of the queue's first record
    /// Threads of the process before that write on: two processes share the file.
    std::vector<std::uint32_t> others;
    std::optional<std::size_t> othersProcess;
    /// On the run's axis: all lines of the part are earlier, if the certainty's premise holds.
    std::optional<std::int64_t> notAfter;
    /// On the run's axis: when another log shows that the wall clock was set. Later lines may be on either
    /// clock.
    std::optional<std::int64_t> setAfter;
    Certainty certainty;

    bool HasThread(std::uint32_t thread) const;
    /// Whether the part's stamps bound how long the device had run. Across a place where order breaks the
    /// clock counts seconds that did not pass.
    bool BoundsUptime() const {
        return stamped > 0 && !hidesSeam && !mayBeOlder && !doubtful && clockBreaks == 0;
    }
    /// The calibration line's counter, since another date fits it.
    void TakeAsItStands() {
        certainty.earlier = doubtful && certainty.earlier == 1 ? 0 : certainty.earlier;
        doubtful = mayBeQuote;
    }
};

} // namespace NimaPost
