#pragma once

#include "tools/base/ThreadTimes.h"
#include "tools/base/WallClock.h"
#include "tools/log/LogLine.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace NimaPost {

struct ByteRange {
    std::uint64_t begin = 0;
    std::uint64_t end = 0;
};

/// How a file was written.
struct Rounds {
    std::vector<ByteRange> older; ///< in the order in which they were written
    /// The calibration lines at the end of a full file, each of a process that opened it there and then went
    /// on at its start, without a buffer after one more line; empty where there are none.
    ByteRange openings;
    ByteRange newest; ///< all of it where there are no older ones
    /// The writer may have gone on at the file's start, and nothing proves where its newest lines end.
    bool hidden = false;
};

/// A place between two stamped lines of which neither is a calibration line.
struct Step {
    std::int64_t width = -1;  ///< from one stamp to the next, read as a step forward
    std::uint64_t offset = 0; ///< where the lines after it begin, a torn one included
    std::uint64_t from = 0;   ///< where the line in front of it begins
    std::uint64_t line = 0;   ///< number of the stamped line after it
    bool torn = false;        ///< a line without header stands between, perhaps the rest of one
    bool unattached = false;  ///< and the line before it was ended by the device, not by its message
    /// And what it begins with.
    HeaderRest cut = HeaderRest::kNone;
    bool ends = false; ///< a calibration line follows: nothing tells how wide the step is
    /// Where the line after it may have lost the first digits of its counter: by how much these would have to
    /// count for the next line to be a short step later, and the step that is then left.
    std::int64_t digitsCount = 0;
    std::int64_t stepWithDigits = 0;
};

/// How wide steps are in a log, by powers of two.
class StepWidths {
  public:
    void Add(std::int64_t width);
    /// What hardly any step exceeds.
    std::int64_t Usual() const { return Quantile(99, 100); }
    /// What one step in four exceeds.
    std::int64_t Common() const { return Quantile(3, 4); }
    /// Whether hardly any other step is as wide.
    bool IsRare(std::int64_t width) const;

  private:
    std::int64_t Quantile(std::uint64_t parts, std::uint64_t of) const;

    std::array<std::uint64_t, 65> counts_{};
    std::uint64_t sum_ = 0;
};

/// Finds out from one reading of a log whether its writer went on at the file's start, and where its rounds
/// meet (doc/clock.md).
class RoundDetector {
  public:
    void Line(const LogLine& line, std::string_view text, std::uint64_t offset);

    Rounds Judge(std::uint64_t size) const;

  private:
    /// So many lines at the end of a log without a buffer may be the one that filled it.
    static constexpr std::size_t kUnbufferedLines = 2;

    /// The line that fills a log waits in the buffer while the log goes on at its start. So it stands after
    /// the calibration line there, by the same thread and stamped a moment before it; after one that was
    /// written at an opening all lines are later.
    bool IsProven() const;

    /// Whether something looks like the rest of a line of which the beginning was overwritten. Raw data
    /// without a header looks so, too, and so does the second line of a message.
    bool HoldsARest() const;

    /// The same with a step in time as where rounds meet. It is any part of a second there.
    bool HoldsARestAtAStep() const;

    /// What is left of a header. A text that looks so has no step beside it as between no two other lines.
    bool HoldsACut() const;

    /// At the rest of a line all threads change, of which no opening tells.
    bool ThreadsChangeAtARest() const;

    /// A process that opened the log when it was full left a calibration line at its end, and one at the
    /// start with its first line or later. So the one at the end is the earlier one of the same clock.
    bool WasOpenedWhenFull() const;

    /// So it may be, though others look so: the clock was set back by whole seconds, or another boot's clock
    /// happens to be near.
    bool MayHaveGoneOn() const { return mayPrecede_ || endMayPrecede_; }

    /// Without a buffer the line that filled the log is the last one of its round, or nearly.
    bool EndsAtFirst() const;

    static bool StandsOut(const Step& step, std::int64_t usual);

    /// How likely rounds meet at a step, given that they do somewhere.
    enum class Rank : unsigned char {
        kNone,
        kPossible,   ///< the rest of a message, or of a line
        kAligned,    ///< between two whole lines, far wider than others
        kWide,       ///< the rest of something, at a wide step, or of a line that lacks digits of its counter
        kUnattached, ///< the rest of a line whose beginning is not in front of it
        kHeader      ///< the rest of a header
    };
    Rank RankOf(const Step& step) const;

    struct Seam {
        std::uint64_t offset = 0;
        Rank rank = Rank::kNone;
    };
    /// Where rounds meet, in the order of the file: newer lines stand before each place and older ones after
    /// it.
    std::vector<Seam> Seams(std::uint64_t size) const;
    /// A file passes its maximum by less than a buffer and a message, so rounds end within this of each
    /// other.
    std::uint64_t RoundsDiffer(std::uint64_t size) const;
    /// The most likely place before `end`.
    Seam BestBefore(std::uint64_t end) const;

    void Calibration(const LogLine& line, std::uint64_t offset);
    void NoteThread(std::uint32_t thread);
    void CompareWithFirst(const RawDate& date, const LogLine& line);
    void Consider(const LogLine& line, std::uint64_t offset);
    void ConsiderDigits(const Step& step, std::int64_t counter);
    /// Every place where rounds may meet.
    template <class Visitor>
    void ForEachPlace(const Visitor& visitor) const;

    std::optional<std::int64_t> first_; ///< counter of the calibration line at the file's start
    std::uint32_t firstThread_ = 0;
    std::optional<RawDate> firstDate_;
    /// By how much the line after it is stamped earlier; a second when another thread wrote it.
    std::optional<std::int64_t> afterFirst_;
    bool datesRise_ = false; ///< an opening is dated after the first line
    std::optional<std::uint64_t> dateFellAt_;
    std::optional<std::uint64_t> firstOpening_; ///< after the file's start
    /// The first of the calibration lines that the file ends with, each with one line after it at the most.
    std::optional<std::uint64_t> openingAtEnd_;
    std::size_t linesOfOpening_ = 0;
    // An opening is dated no later than the first line.
    bool mayPrecede_ = false;              ///< and one clock explains both dates closely
    bool endPrecedes_ = false;             ///< so, and it is one of those at the end
    bool endMayPrecede_ = false;           ///< one of those at the end, and no clock contradicts it
    std::optional<std::int64_t> previous_; ///< the counter of the line before, unless that one calibrates
    std::uint64_t previousOffset_ = 0;
    ThreadTimes lastOfThread_;
    ThreadTimes firstLineOfThread_;
    ThreadTimes lastLineOfThread_;
    std::array<LineStamp, kUnbufferedLines> last_;
    std::uint64_t lines_ = 0;
    std::vector<Step> torn_;
    std::vector<Step> widest_ = std::vector<Step>(8);
    std::size_t lightest_ = 0; ///< of these
    std::vector<Step> withoutDigits_;
    std::int64_t lastWidth_ = 0; ///< of the last step
    StepWidths widths_;
    std::uint64_t longestMessage_ = 0; ///< in bytes, the lines of it that have no header included
    std::uint64_t headerless_ = 0;
    std::uint64_t headerlessOffset_ = 0;
    std::size_t unattached_ = 0;
    HeaderRest headerlessCut_ = HeaderRest::kNone;
    bool headerlessIsUnattached_ = false;
    bool endedByDevice_ = false; ///< the line before
};

} // namespace NimaPost
