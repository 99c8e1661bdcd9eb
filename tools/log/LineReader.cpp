#include "tools/log/LineReader.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Progress.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

namespace NimaPost {

namespace {

/// A few lines.
constexpr std::size_t kLookAhead = 4096;
/// How soon the next line is expected after a calibration line. Readings of its counter that differ in the
/// first digits lie further apart.
constexpr std::int64_t kNextLine = kSecond / 10;

/// Between two stamps within a second, or on both sides of the next. Readings with more digits are not taken
/// modulo the period, since many of them would fit.
std::int64_t Apart(std::int64_t counter, std::int64_t next) {
    return std::min(std::abs(next - counter), std::abs(next + kCounterPeriod - counter));
}

/// How many of the digits in front of a calibration line's thread belong to the torn line before it: those
/// that leave a counter to which the next stamp fits. Where none does, none is taken off and the line has no
/// stamp.
std::size_t ForeignDigits(std::string_view digits, std::string_view following, bool& stamped) {
    std::optional<std::int64_t> next;
    while (!following.empty() && !next) {
        const LogLine line = ParseLogLine(TakeLine(following));
        next = line.hasHeader ? std::optional(line.counter) : std::nullopt;
    }
    std::size_t foreign = 0;
    std::int64_t nearest = kNextLine;
    for (std::size_t i = 0; next && i < digits.size(); ++i) {
        std::string_view counter = digits.substr(i);
        std::int64_t value = 0;
        if (counter.size() <= kLongestCounter && (counter[0] != '0' || counter.size() == 1) &&
            TakeDecimal(counter, value) && Apart(value, *next) < nearest) {
            nearest = Apart(value, *next);
            foreign = i;
        }
    }
    stamped = nearest < kNextLine;
    return foreign;
}

} // namespace

LineReader::LineReader(const InputFile& file, LogKind kind, std::uint64_t begin, std::uint64_t end)
    : file_(file), kind_(kind), next_(begin), end_(end) {}

bool LineReader::Next(std::string_view& line) {
    while (NextPiece(line)) {
        if (kind_ == LogKind::kQueue || FitsLimit(line)) {
            return true;
        }
    }
    return false;
}

/// Cuts a piece where its line becomes too long. False if nothing is left of it.
bool LineReader::FitsLimit(std::string_view& piece) {
    const std::uint64_t room = file_.MostLineBytes() - std::min(file_.MostLineBytes(), inLine_);
    inLine_ = piece.ends_with('\n') ? 0 : inLine_ + piece.size();
    if (piece.size() > room) {
        file_.NoteCutLine();
        piece = piece.substr(0, static_cast<std::size_t>(room));
    }
    return !piece.empty();
}

bool LineReader::NextPiece(std::string_view& line) {
    joined_ = splits_;
    for (;;) {
        const std::string_view rest(buffer_.data() + from_, to_ - from_);
        std::size_t length = LineLength(rest);
        if (length > 0 && kind_ == LogKind::kLines && !joined_) {
            if (const auto found = FindJoinedCalibration(rest.substr(0, length))) {
                if (rest.size() - length < kLookAhead && Fill()) {
                    continue;
                }
                const std::size_t at =
                    found->digits + ForeignDigits(rest.substr(found->digits, found->thread - found->digits),
                                                  rest.substr(length, kLookAhead), stamped_);
                splits_ = at > 0;
                joined_ = at == 0;
                length = at > 0 ? at : length;
            }
        } else {
            splits_ = false;
        }
        if (length > 0) {
            line = rest.substr(0, length);
            lineOffset_ = next_ - rest.size();
            from_ += length;
            return true;
        }
        if (!Fill()) {
            const std::string_view last(buffer_.data() + from_, to_ - from_);
            line = last;
            lineOffset_ = next_ - last.size();
            from_ = to_;
            return !last.empty();
        }
    }
}

LogLine LineReader::Parse(std::string_view line) const {
    LogLine parsed = kind_ == LogKind::kQueue ? ParseQueueRecord(line) : ParseLogLine(line);
    parsed.stamped = parsed.stamped && !(joined_ && !stamped_);
    return parsed;
}

LogLine LineReader::ParseHeader(std::string_view line) const {
    LogLine parsed = ParseLogHeader(line);
    parsed.stamped = parsed.stamped && !(joined_ && !stamped_);
    return parsed;
}

/// 0 when the end of the line is not in the buffer yet.
std::size_t LineReader::LineLength(std::string_view rest) const {
    std::size_t length = 0;
    if (kind_ == LogKind::kLines) {
        const void* end = rest.empty() ? nullptr : std::memchr(rest.data(), '\n', rest.size());
        length =
            end == nullptr ? 0 : static_cast<std::size_t>(static_cast<const char*>(end) - rest.data()) + 1;
    } else if (!rest.empty()) {
        const std::string_view window = rest.substr(0, kLongestLine + 64);
        length = FindQueueRecord(window, 1);
        length = length == window.size() ? 0 : length;
    }
    if (length == 0 || length > kLongestLine) {
        length = rest.size() >= kLongestLine ? kLongestLine : 0;
    }
    return length;
}

bool LineReader::Fill() {
    if (next_ >= end_) {
        return false;
    }
    if (buffer_.empty()) {
        buffer_.resize(
            static_cast<std::size_t>(std::min<std::uint64_t>(kBlock + kLongestLine, end_ - next_)));
    }
    std::memmove(buffer_.data(), buffer_.data() + from_, to_ - from_);
    to_ -= from_;
    from_ = 0;
    const auto wanted = static_cast<std::size_t>(std::min<std::uint64_t>(buffer_.size() - to_, end_ - next_));
    Progress::Note(file_.Path(), next_, file_.Size());
    const std::size_t got = file_.ReadAt(next_, {buffer_.data() + to_, wanted});
    to_ += got;
    next_ += got;
    if (got < wanted) {
        end_ = next_; // The file has become shorter under way.
    }
    return got > 0;
}

} // namespace NimaPost
