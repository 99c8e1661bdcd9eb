#pragma once

#include "tools/base/InputFile.h"
#include "tools/log/LogLine.h"
#include "tools/log/Quotes.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

namespace NimaPost {

/// Reads the lines, or the queue's records, of a part of a file one after the other. Memory is bounded: what
/// is longer than 64 KiB comes in pieces, and of a line no more than its file allows. A calibration line that
/// was written at the end of a torn line is a line of its own, and one that a message holds is none.
class LineReader {
  public:
    /// `quotes` tells of each calibration line after the file's start whether it is one.
    LineReader(const InputFile& file, LogKind kind, std::uint64_t begin, std::uint64_t end,
               QuoteFinder quotes = {});

    /// False at the end. The line, its end included, stays valid until the next call.
    bool Next(std::string_view& line);
    /// Where the line of the last call begins.
    std::uint64_t Offset() const { return lineOffset_; }
    /// Whether that line was found at the end of a torn one.
    bool Joined() const { return joined_; }
    /// Whether that line stands in a message, whatever it looks like.
    bool Quoted() const { return IsQuoted(lineOffset_); }
    /// That line taken apart.
    LogLine Parse(std::string_view line) const;
    /// Of a log of lines, as `ParseLogHeader` does.
    LogLine ParseHeader(std::string_view line) const;

  private:
    static constexpr std::size_t kBlock = 1 << 18;
    static constexpr std::size_t kLongestLine = 1 << 16;

    bool NextPiece(std::string_view& line);
    bool FitsLimit(std::string_view& piece);
    bool Fill();
    std::size_t Split(std::string_view rest, std::size_t length, const FoundCalibration& found);
    bool IsQuoted(std::uint64_t line) const { return line >= quote_.begin && line < quote_.end; }
    /// A line with what its place told of it.
    LogLine Judged(LogLine line) const;
    std::size_t LineLength(std::string_view rest) const;

    const InputFile& file_;
    LogKind kind_;
    std::uint64_t next_; ///< file offset after the buffer
    std::uint64_t end_;
    std::vector<char> buffer_;
    std::size_t from_ = 0;
    std::size_t to_ = 0;
    std::uint64_t lineOffset_ = 0;
    std::uint64_t inLine_ = 0; ///< bytes of the line so far
    bool splits_ = false;      ///< the next line is what a torn line was split from
    bool joined_ = false;
    bool stamped_ = true;   ///< of a calibration line: its counter is known
    bool doubtful_ = false; ///< of a calibration line: a torn digit may stand in front of it
    QuoteFinder quotes_;
    Quote quote_; ///< the last one, if it is proven
    bool mayBeQuote_ = false;
};

} // namespace NimaPost
