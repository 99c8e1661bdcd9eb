#include "tools/log/LineReader.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Progress.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace NimaPost {

namespace {

/// How soon the next line is expected after a calibration line. Readings of its counter that differ in the
/// first digits lie further apart.
constexpr std::int64_t kNextLine = kSecond / 10;

/// Between two stamps within a second, or on both sides of the next. Readings with more digits are not taken
/// modulo the period, since many of them would fit.
std::int64_t Apart(std::int64_t counter, std::int64_t next) {
    return std::min(std::abs(next - counter), std::abs(next + kCounterPeriod - counter));
}

/// A shorter counter may happen to be as near. It hardly is if the next line follows so soon.
constexpr std::int64_t kSurelyNext = kSecond / 1000;

/// Nanoseconds of a second, and the seconds that a device can have run: more than four years.
constexpr std::int64_t kMostCounter = kSecond + (std::int64_t{1} << 27);

/// The last of these digits, as a counter.
std::optional<std::int64_t> CounterOf(std::string_view digits) {
    std::int64_t value = 0;
    const bool isOne = digits.size() <= 10 && (digits[0] != '0' || digits.size() == 1) &&
                       TakeDecimal(digits, value) && value < kMostCounter;
    return isOne ? std::optional(value) : std::nullopt;
}

/// How the digits in front of a calibration line's thread are read.
struct Reading {
    std::size_t foreign = 0; ///< so many belong to the torn line before it
    bool known = false;
    bool doubtful = false;
};

/// Those are torn text that leave a counter to which the next stamp fits. At a line's start most likely none
/// is, though one may be where a shorter counter fits better. In mid-line the counter is not known if none
/// fits.
Reading ReadDigits(std::string_view digits, std::string_view following, bool atLineStart) {
    std::optional<std::int64_t> next;
    while (!following.empty() && !next) {
        const LogLine line = ParseLogLine(TakeLine(following));
        next = line.hasHeader ? std::optional(line.counter) : std::nullopt;
    }
    Reading reading;
    std::int64_t nearest = kNextLine;
    for (std::size_t i = 0; next && i < digits.size(); ++i) {
        const auto counter = CounterOf(digits.substr(i));
        if (counter && Apart(*counter, *next) < nearest) {
            nearest = Apart(*counter, *next);
            reading.foreign = i;
            reading.known = true;
        }
    }
    const auto whole = atLineStart ? CounterOf(digits) : std::nullopt;
    if (whole) {
        // With a second's digit in front, both fit alike.
        return {0, true, (reading.known && reading.foreign > 0) || *whole >= kSecond};
    }
    reading.doubtful = nearest > kSurelyNext;
    return reading;
}

} // namespace

LineReader::LineReader(const InputFile& file, LogKind kind, std::uint64_t begin, std::uint64_t end,
                       QuoteFinder quotes)
    : file_(file), kind_(kind), next_(begin), end_(end), quotes_(std::move(quotes)) {}

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
            doubtful_ = mayBeQuote_ = false;
            stamped_ = true;
            if (const auto found = FindCalibration(rest.substr(0, length))) {
                if (rest.size() - length < kQuoteLookAhead && Fill()) {
                    continue;
                }
                length = Split(rest, length, *found);
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

/// How much of a line that holds a calibration line is to be read first.
std::size_t LineReader::Split(std::string_view rest, std::size_t length, const FoundCalibration& found) {
    const bool atLineStart = found.digits == 0;
    const bool opensFile = next_ == rest.size(); // Nothing is in front of it.
    if (atLineStart && opensFile) {
        return length;
    }
    if (atLineStart && rest[0] == '0' && found.thread > 1) {
        stamped_ = false; // The rest of a counter: a line that is older than the one before it.
        return length;
    }
    const std::string_view following = rest.substr(length, kQuoteLookAhead);
    const Reading reading =
        ReadDigits(rest.substr(found.digits, found.thread - found.digits), following, atLineStart);
    const std::size_t at = found.digits + reading.foreign;
    const std::uint64_t offset = next_ - rest.size();
    if (IsQuoted(offset)) {
        return length;
    }
    if (const auto quote =
            quotes_ ? quotes_({offset, rest.substr(0, length), found.digits, at, atLineStart, following})
                    : std::nullopt) {
        if (quote->proven) {
            quote_ = *quote;
            return length;
        }
        mayBeQuote_ = true;
    }
    splits_ = at > 0;
    joined_ = at == 0 && !reading.known;
    stamped_ = reading.known;
    doubtful_ = reading.doubtful;
    return at > 0 ? at : length;
}

LogLine LineReader::Parse(std::string_view line) const {
    if (Quoted()) {
        LogLine text;
        text.message = WithoutLineEnd(line);
        return text;
    }
    return Judged(kind_ == LogKind::kQueue ? ParseQueueRecord(line) : ParseLogLine(line));
}

LogLine LineReader::ParseHeader(std::string_view line) const {
    return Quoted() ? LogLine() : Judged(ParseLogHeader(line));
}

LogLine LineReader::Judged(LogLine line) const {
    // A torn line is not what was found at its end.
    line.stamped = line.stamped && (stamped_ || splits_);
    line.doubtful = doubtful_ && !splits_;
    line.mayBeQuote = mayBeQuote_ && !splits_;
    return line;
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
