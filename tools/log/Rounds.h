#pragma once

#include "tools/base/WallClock.h"
#include "tools/log/LogLine.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace NimaPost {

/// A place between two stamped lines.
struct Step {
    std::int64_t width = -1;  ///< from one stamp to the next, read as a step forward
    std::uint64_t offset = 0; ///< where the lines behind it begin, a torn one included
    std::uint64_t from = 0;   ///< where the line in front of it begins
    bool torn = false;        ///< one line without header stands between
    bool cutHeader = false;   ///< and it looks like the rest of a line that had one
};

/// How wide steps are in a log, by powers of two.
class StepWidths {
  public:
    void Add(std::int64_t width);
    /// What hardly any step exceeds.
    std::int64_t Usual() const;

  private:
    std::array<std::uint64_t, 65> counts_{};
    std::uint64_t sum_ = 0;
};

/// Finds out from one reading of a log whether its writer went on at the file's start, and where its rounds
/// meet (doc/clock.md).
class RoundDetector {
  public:
    void Line(const LogLine& line, std::string_view text, std::uint64_t offset);

    /// Where rounds meet, in the order of the file: newer lines stand before each place and older ones behind
    /// it. Empty where nothing says that the writer went on at the file's start.
    std::vector<std::uint64_t> Judge(std::uint64_t size) const;

  private:
    /// So many lines at the end of a log without a buffer may be the one that filled it.
    static constexpr std::size_t kUnbufferedLines = 2;

    struct Stamp {
        std::int64_t counter = 0;
        std::uint32_t thread = 0;
    };

    /// The line that fills a log waits in the buffer while the log goes on at its start. So it stands behind
    /// the calibration line there, by the same thread and stamped a moment before it; behind one that was
    /// written at an opening all lines are later.
    bool IsProven() const;

    /// Without a buffer the line that filled the log is the last one of its round, or nearly.
    bool EndsAtFirst() const;

    static bool StandsOut(const Step& step, std::int64_t usual);

    /// Rounds may also meet between two whole lines. Then the step there is far wider than others: in front
    /// of what is torn at the file's end, and among the last lines, where rounds of slightly different
    /// lengths end.
    void AddAlignedSeams(std::int64_t usual, std::uint64_t size, std::vector<std::uint64_t>& seams) const;

    /// The most likely place when none stands out: a torn line, or else the widest step.
    const Step* Best() const;

    void Consider(const LogLine& line, std::uint64_t offset);

    std::optional<std::int64_t> first_; ///< counter of the calibration line at the file's start
    std::uint32_t firstThread_ = 0;
    std::optional<RawDate> firstDate_;
    /// By how much the line behind it is stamped earlier; a second when another thread wrote it.
    std::optional<std::int64_t> behindFirst_;
    std::optional<std::uint64_t> dateFellAt_;
    std::optional<std::int64_t> previous_;
    std::uint64_t previousOffset_ = 0;
    std::unordered_map<std::uint32_t, std::int64_t> lastOfThread_;
    std::array<Stamp, kUnbufferedLines> last_;
    std::uint64_t lines_ = 0;
    std::vector<Step> torn_;
    std::vector<Step> widest_ = std::vector<Step>(8);
    StepWidths widths_;
    std::uint64_t headerless_ = 0;
    std::uint64_t headerlessOffset_ = 0;
    bool headerlessIsCut_ = false;
};

} // namespace NimaPost
