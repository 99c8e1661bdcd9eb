#include "tools/log/Quotes.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace NimaPost {

namespace {

/// From a line of a process that is at work to its next one, and from an opening to its first one.
constexpr std::int64_t kSoon = kSecond / 10;
/// So soon by chance one line in 200 is.
constexpr std::int64_t kAtOnce = kSecond / 200;

/// A line with a header after the calibration line.
struct Follower {
    std::uint64_t offset = 0;
    std::int64_t afterLast = 0;   ///< from the last line before the calibration line
    std::int64_t afterQuoted = 0; ///< from the calibration line, or the line with a header after that
    bool isKnown = false;         ///< its thread wrote before the calibration line, too
    bool afterAnother = false;    ///< another calibration line stands between
};

bool HasThread(const LinesBefore& before, std::uint32_t thread) {
    return std::binary_search(before.threads.begin(), before.threads.end(), thread);
}

/// Of two processes, most identifiers are further apart.
constexpr std::int64_t kOneAddressSpace = 512LL << 20;

bool IsNear(const LinesBefore& before, std::uint32_t thread) {
    return std::any_of(before.threads.begin(), before.threads.end(), [&](std::uint32_t each) {
        return std::abs(std::int64_t{each} - std::int64_t{thread}) < kOneAddressSpace;
    });
}

struct Following {
    std::vector<Follower> lines;
    std::uint64_t end = 0; ///< of the place, or where another calibration line stands after it
};

Following FollowingOf(const QuotePlace& place, const LinesBefore& before, std::int64_t counter) {
    const std::uint64_t begin = place.offset + place.line.size();
    Following following{{}, begin + place.following.size()};
    bool afterAnother = false;
    for (std::string_view rest = place.following; rest.find('\n') != std::string_view::npos;) {
        const std::uint64_t at = begin + place.following.size() - rest.size();
        const std::string_view text = TakeLine(rest);
        const LogLine line = ParseLogLine(text);
        if (FindCalibration(text)) {
            if (std::exchange(afterAnother, true)) {
                break;
            }
            following.end = at;
        }
        if (line.hasHeader && !IsCalibration(line)) {
            following.lines.push_back({at, StepWithFall(before.counter, line.counter, kDisorder),
                                       StepForward(counter, line.counter), HasThread(before, line.thread),
                                       afterAnother});
            counter = line.counter;
        }
    }
    return following;
}

/// The message ends in front of the first line that may follow the last one before the quote, or does not
/// follow what is quoted.
Quote EndAt(Quote quote, const Following& following) {
    const auto isNext = [](const Follower& each) {
        return each.isKnown || each.afterQuoted >= std::min(kSoon, std::abs(each.afterLast));
    };
    const std::vector<Follower>& lines = following.lines;
    const auto next = std::find_if(lines.begin(), lines.end(), isNext);
    quote.ended = next != lines.end();
    quote.end = std::min(following.end, quote.ended     ? next->offset
                                        : lines.empty() ? following.end
                                                        : lines.front().offset);
    return quote;
}

enum class QuoteReading : unsigned char { kOpening, kDoubtful, kQuote };

/// After an opening only lines of the process that opened the log follow, since others would have been
/// written over it. So a thread of the process before tells of a quote, unless both have the same
/// identifiers.
QuoteReading ReadPlace(const QuotePlace& place, const LinesBefore& before, const LogLine& line,
                       const std::vector<Follower>& followers) {
    const auto known =
        std::find_if(followers.begin(), followers.end(), [](const Follower& each) { return each.isKnown; });
    const bool isFollowed = !followers.empty() && followers.front().afterQuoted < kSoon;
    const auto date = CalibrationDate(line);
    const bool isLater = date && before.wall && (date->second + 1) * kSecond > *before.wall;
    if (followers.empty()) {
        return place.atLineStart ? QuoteReading::kOpening : QuoteReading::kDoubtful;
    }
    if (known == followers.end()) {
        return followers.front().afterLast < kAtOnce && !isFollowed && !isLater ? QuoteReading::kDoubtful
                                                                                : QuoteReading::kOpening;
    }
    if (HasThread(before, line.thread)) {
        return known->afterLast < kSoon && !isFollowed && !isLater ? QuoteReading::kDoubtful
                                                                   : QuoteReading::kOpening;
    }
    if (followers.front().afterQuoted < kAtOnce) {
        return QuoteReading::kOpening; // Two processes may have the log open.
    }
    const bool fits = !known->afterAnother || known->afterLast < kAtOnce;
    return fits && !IsNear(before, line.thread) ? QuoteReading::kQuote : QuoteReading::kDoubtful;
}

} // namespace

QuoteFinder KnownQuotes(const std::vector<Quote>& quotes) {
    return [&quotes](const QuotePlace& place) -> std::optional<Quote> {
        const std::uint64_t end = place.offset + place.line.size();
        const auto quote =
            std::lower_bound(quotes.begin(), quotes.end(), place.offset,
                             [](const Quote& each, std::uint64_t offset) { return each.begin < offset; });
        return quote != quotes.end() && quote->begin < end ? std::optional(*quote) : std::nullopt;
    };
}

std::optional<Quote> JudgeQuote(const QuotePlace& place, const LinesBefore& before, bool isProven) {
    const LogLine line = ParseLogLine(place.line.substr(place.counter));
    const Following following = FollowingOf(place, before, line.counter);
    const QuoteReading reading =
        isProven ? QuoteReading::kQuote : ReadPlace(place, before, line, following.lines);
    if (reading == QuoteReading::kOpening) {
        return std::nullopt;
    }
    return EndAt({place.offset + place.counter, 0, reading == QuoteReading::kQuote}, following);
}

} // namespace NimaPost
