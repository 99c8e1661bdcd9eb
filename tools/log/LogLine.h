#pragma once

#include "catalogue/Levels.h"
#include "catalogue/Marks.h"
#include "tools/base/WallClock.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace NimaPost {

/// The parts of a line of a text log, doc/text-log.md, as views into it.
struct LogLine {
    bool hasHeader = false;
    /// False where the counter's first digits cannot be told from a torn line in front of them.
    bool stamped = false;
    /// Perhaps with a torn digit in front of the counter.
    bool doubtful = false;
    /// Of a calibration line: perhaps a part of a message.
    bool mayBeQuote = false;
    std::int64_t counter = 0;
    std::uint32_t thread = 0;
    std::int64_t priority = 0;
    std::string_view level;   ///< "WARN", "CAL"; empty for raw text
    std::string_view tracer;  ///< empty for raw text
    std::string_view message; ///< without the line end
    /// Of the memory queue's file, which is dated instead of stamped.
    std::optional<RawDate> date;
};

/// From the stamp of the line that filled a log to the calibration line that it caused: a write of the
/// buffer.
inline constexpr std::int64_t kRollTakes = 5'000'000;
/// The same on a device that is busy; too long to be proof by itself.
inline constexpr std::int64_t kSlowRollTakes = 100'000'000;
/// From the last line of a log without a buffer to the calibration line.
inline constexpr std::int64_t kUnbufferedRollTakes = 1'000'000;

/// A line's stamp and who wrote it.
struct LineStamp {
    std::int64_t counter = 0;
    std::uint32_t thread = 0;
};

/// The levels that lines are written at, the gravest first.
inline constexpr std::span kLevelNames = std::span(Nima::Catalogue::kLevelNames).subspan<1>();

/// Takes a line apart, given with or without its end. A line without a header is all message.
LogLine ParseLogLine(std::string_view text);
/// The same, but what comes after the header of a line that is none of calibration is all message, with its
/// end.
LogLine ParseLogHeader(std::string_view text);
/// The same as the first for a record of the memory queue's file.
LogLine ParseQueueRecord(std::string_view text);

/// The date of a calibration line.
std::optional<RawDate> CalibrationDate(const LogLine& line);

/// Whether a line is one of calibration, whatever its date.
inline bool IsCalibration(const LogLine& line) {
    return line.level == Nima::Catalogue::kCalibrationLevel;
}

/// The thread, of a line that stands after all earlier ones of its thread. A calibration line does not: the
/// line that made a log roll is stamped before it and stored after it.
inline std::optional<std::uint32_t> OrderedThread(const LogLine& line) {
    return IsCalibration(line) ? std::nullopt : std::optional(line.thread);
}

/// A calibration line, perhaps in the middle of a line: a process wrote it at the end of what another left
/// torn.
struct FoundCalibration {
    std::size_t digits = 0; ///< where the digits in front of its thread begin, some of them perhaps torn text
    std::size_t thread = 0; ///< where they end
};
std::optional<FoundCalibration> FindCalibration(std::string_view text);

/// What a line without a header of its own begins with.
enum class HeaderRest : unsigned char {
    kNone,
    kMark,  ///< a thread's or a level's mark: the rest of a header, or a text like one
    kInside ///< the rest of a mark, as no text begins
};
HeaderRest RestOfHeader(std::string_view text);

/// How lines are told apart in a file.
enum class LogKind : unsigned char { kLines, kQueue };

/// What kind of log begins like this; empty for none.
std::optional<LogKind> LogKindOf(std::string_view front);

/// Where a record of the queue's file begins at or after `from`; the end of the text if nowhere.
std::size_t FindQueueRecord(std::string_view text, std::size_t from);

} // namespace NimaPost
