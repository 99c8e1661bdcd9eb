#pragma once

#include "catalogue/Levels.h"
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
    std::int64_t counter = 0;
    std::uint32_t thread = 0;
    std::int64_t priority = 0;
    std::string_view level;   ///< "WARN", "CAL"; empty for raw text
    std::string_view tracer;  ///< empty for raw text
    std::string_view message; ///< without the line end
    /// Of the memory queue's file, which is dated instead of stamped.
    std::optional<RawDate> date;
};

/// The levels that lines are written at, the gravest first.
inline constexpr std::span kLevelNames = std::span(Nima::Catalogue::kLevelNames).subspan<1>();

/// Takes a line apart, given with or without its end. A line without a header is all message.
LogLine ParseLogLine(std::string_view text);
/// The same for a record of the memory queue's file.
LogLine ParseQueueRecord(std::string_view text);

/// The date of a calibration line.
std::optional<RawDate> CalibrationDate(const LogLine& line);

/// The thread, of a line that stands behind all earlier ones of its thread. A calibration line does not: the
/// line that made a log roll is stamped before it and stored behind it.
std::optional<std::uint32_t> OrderedThread(const LogLine& line);

/// Whether a line is one of calibration, whatever its date.
bool IsCalibration(const LogLine& line);

/// Whether a line that has no header of its own looks like the rest of one that had.
bool LooksLikeCutLine(std::string_view text);

/// How lines are told apart in a file.
enum class LogKind : unsigned char { kLines, kQueue };

/// What kind of log begins like this; empty for none.
std::optional<LogKind> LogKindOf(std::string_view front);

/// Where a record of the queue's file begins at or after `from`; the end of the text if nowhere.
std::size_t FindQueueRecord(std::string_view text, std::size_t from);

} // namespace NimaPost
