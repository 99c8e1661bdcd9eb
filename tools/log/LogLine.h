#pragma once

#include "tools/base/InputFile.h"
#include "tools/base/WallClock.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

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

/// Levels from the gravest on, as they stand in lines.
constexpr std::array<std::string_view, 6> kLevelNames{"FATAL", "ERROR", "WARN", "PERF", "INFO", "DEBUG"};

/// Takes a line apart, given with or without its end. A line without a header is all message.
LogLine ParseLogLine(std::string_view text);
/// The same for a record of the memory queue's file.
LogLine ParseQueueRecord(std::string_view text);

/// The date of a calibration line.
std::optional<RawDate> CalibrationDate(const LogLine& line);

/// The thread, of a line that stands behind all earlier ones of its thread. A calibration line does not: the
/// line that made a log roll is stamped before it and stored behind it.
std::optional<std::uint32_t> OrderedThread(const LogLine& line);

/// Whether a line that has no header of its own looks like the rest of one that had.
bool LooksLikeCutLine(std::string_view text);

/// How lines are told apart in a file.
enum class LogKind : unsigned char { kLines, kQueue };

/// What kind of log begins like this; empty for none.
std::optional<LogKind> LogKindOf(std::string_view front);

/// Reads the lines, or the queue's records, of a part of a file one after the other. Memory is bounded: what
/// is longer than 64 KiB comes in pieces.
class LineReader {
  public:
    LineReader(const InputFile& file, LogKind kind, std::uint64_t begin, std::uint64_t end);

    /// False at the end. The line, its end included, stays valid until the next call.
    bool Next(std::string_view& line);
    /// Where the line of the last call begins.
    std::uint64_t Offset() const { return lineOffset_; }

  private:
    static constexpr std::size_t kBlock = 1 << 20;
    static constexpr std::size_t kLongestLine = 1 << 16;

    bool Fill();
    std::size_t LineLength(std::string_view rest) const;

    const InputFile& file_;
    LogKind kind_;
    std::uint64_t next_; ///< file offset behind the buffer
    std::uint64_t end_;
    std::vector<char> buffer_;
    std::size_t from_ = 0;
    std::size_t to_ = 0;
    std::uint64_t lineOffset_ = 0;
};

} // namespace NimaPost
