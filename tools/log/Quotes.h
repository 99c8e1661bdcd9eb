#pragma once

#include "tools/log/LogLine.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>
#include <vector>

namespace NimaPost {

/// So many bytes after a calibration line tell of it: more than the longest message of a tracer, and some
/// lines.
inline constexpr std::size_t kQuoteLookAhead = 8192;

/// What may be a part of a message, though it begins with a calibration line: a host traced lines of a log.
struct Quote {
    std::uint64_t begin = 0; ///< offset of the calibration line, after the digits in front of its counter
    std::uint64_t end = 0;   ///< of it and the lines with headers that belong to the same message
    bool proven = false;     ///< else a process may have opened the log there
    bool ended = false;      ///< a line follows that is not of the message
};

/// A calibration line after a log's start, and what stands around it.
struct QuotePlace {
    std::uint64_t offset = 0; ///< of the line that holds it
    std::string_view line;    ///< with its end
    std::size_t digits = 0;   ///< where the digits in front of its thread begin in that line
    std::size_t counter = 0;  ///< and where its counter does
    bool atLineStart = false;
    std::string_view following; ///< some lines after it
};

/// Nothing where it is an opening.
using QuoteFinder = std::function<std::optional<Quote>(const QuotePlace&)>;

/// Finds what was found before.
QuoteFinder KnownQuotes(const std::vector<Quote>& quotes);

/// What is known of the lines in front of a calibration line.
struct LinesBefore {
    /// Of the process that wrote the last ones, its opener included.
    std::vector<std::uint32_t> threads;
    std::int64_t counter = 0; ///< of the last one
    /// The wall-clock time of the last one, the earliest possible; none if nothing dates it.
    std::optional<std::int64_t> wall;
};

/// Whether a calibration line is an opening or a quote, by the lines after it if it is not proven to be one
/// (doc/clock.md).
std::optional<Quote> JudgeQuote(const QuotePlace& place, const LinesBefore& before, bool isProven);

} // namespace NimaPost
