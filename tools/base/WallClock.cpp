#include "tools/base/WallClock.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace NimaPost {

namespace {

constexpr std::int64_t kMicrosecondsPerSecond = 1'000'000;
/// Since 1900: from the last evening of 1969, where a clock without a battery begins west of Greenwich, to
/// 2200.
constexpr std::int64_t kLeastYear = 69;
constexpr std::int64_t kMostYear = 300;

bool TakeDigits(std::string_view& text, std::size_t count, std::int64_t& value) {
    if (text.size() < count) {
        return false;
    }
    value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        if (text[i] < '0' || text[i] > '9') {
            return false;
        }
        value = value * 10 + (text[i] - '0');
    }
    text.remove_prefix(count);
    return true;
}

/// The fields of a date and the characters between them; the widths are those of the printing formats.
std::optional<RawDate> TakeDate(std::string_view& text, const std::array<std::string_view, 6>& separators) {
    constexpr std::array<std::size_t, 6> kWidths{4, 2, 2, 2, 2, 2};
    std::string_view rest = text;
    std::array<std::int64_t, 7> fields{};
    for (std::size_t i = 0; i < kWidths.size(); ++i) {
        if (!TakeDigits(rest, kWidths[i], fields[i]) || !TakeLiteral(rest, separators[i])) {
            return std::nullopt;
        }
    }
    if (!TakeDecimal(rest, fields[6])) {
        return std::nullopt;
    }
    const auto date =
        MakeRawDate(fields[0], fields[1], fields[2], fields[3], fields[4], fields[5], fields[6]);
    if (date) {
        text = rest;
    }
    return date;
}

void AppendTwoDigits(std::string& out, std::int64_t value) {
    out += static_cast<char>('0' + value / 10);
    out += static_cast<char>('0' + value % 10);
}

void AppendDateAndTime(std::string& out, std::int64_t nanoseconds, bool withDay, char between) {
    const std::int64_t fraction = Modulo(nanoseconds, kSecond);
    const std::int64_t seconds = (nanoseconds - fraction) / kSecond;
    const std::int64_t ofDay = Modulo(seconds, 86400);
    if (withDay) {
        const std::chrono::year_month_day date{
            std::chrono::sys_days(std::chrono::days((seconds - ofDay) / 86400))};
        AppendDecimal(out, static_cast<int>(date.year()));
        out += '-';
        AppendTwoDigits(out, static_cast<unsigned>(date.month()));
        out += '-';
        AppendTwoDigits(out, static_cast<unsigned>(date.day()));
        out += between;
    }
    AppendTwoDigits(out, ofDay / 3600);
    out += ':';
    AppendTwoDigits(out, ofDay / 60 % 60);
    out += ':';
    AppendTwoDigits(out, ofDay % 60);
    std::string places;
    AppendSeconds(places, fraction);
    out.append(places, 2);
}

/// The moments that a date can mean.
std::vector<std::int64_t> Candidates(const RawDate& date) {
    std::vector<std::int64_t> moments;
    for (std::int64_t cut = date.microsecondsCut; cut < kMicrosecondsPerSecond; cut += kCutMicroseconds) {
        moments.push_back(date.second * kSecond + cut * 1000);
    }
    return moments;
}

/// From a moment to the nearest one that the date can mean.
std::int64_t Apart(const RawDate& date, std::int64_t moment) {
    const std::int64_t step = kCutMicroseconds * 1000;
    const std::int64_t first = date.Earliest();
    const std::int64_t count = (date.second * kSecond + kSecond - 1 - first) / step;
    const std::int64_t nearest = std::clamp<std::int64_t>((moment - first + step / 2) / step, 0, count);
    return first + nearest * step - moment;
}

} // namespace

std::optional<RawDate> MakeRawDate(std::int64_t year, std::int64_t month, std::int64_t day, std::int64_t hour,
                                   std::int64_t minute, std::int64_t second, std::int64_t subsecond) {
    // 60 is a leap second. The memory queue prints the sub-second field as a signed number. The distance
    // between any two dates of these years, in nanoseconds, fits 64 bits.
    if (year < kLeastYear || year > kMostYear || month < 0 || month > 11 || day < 1 || day > 31 || hour < 0 ||
        hour > 23 || minute < 0 || minute > 59 || second < 0 || second > 60 || subsecond < -32768 ||
        subsecond > 65535) {
        return std::nullopt;
    }
    RawDate date;
    // A day that its month does not have is read as one of the next month.
    const std::chrono::sys_days days = std::chrono::year(static_cast<int>(year) + 1900) /
                                       std::chrono::month(static_cast<unsigned>(month) + 1) /
                                       std::chrono::day(static_cast<unsigned>(day));
    date.second = days.time_since_epoch().count() * std::int64_t{86400} + hour * 3600 + minute * 60 + second;
    date.microsecondsCut = static_cast<std::uint16_t>(subsecond);
    return date;
}

std::optional<RawDate> TakeCompactDate(std::string_view& text) {
    return TakeDate(text, {"", "", "", "", "", "."});
}

std::optional<RawDate> TakeSpacedDate(std::string_view& text) {
    return TakeDate(text, {"-", "-", " ", ":", ":", "."});
}

void AppendWallTime(std::string& out, std::int64_t nanosecondsSince1970, bool withDay) {
    AppendDateAndTime(out, nanosecondsSince1970, withDay, ' ');
}

std::string WallTimeIso(std::int64_t nanosecondsSince1970) {
    std::string text;
    AppendDateAndTime(text, nanosecondsSince1970, true, 'T');
    return text;
}

bool BeganWithTheDevice(const RawDate& date, std::int64_t counter) {
    // The counter is the nanoseconds of the second and less than so many whole ones.
    constexpr std::int64_t kMostSeconds = 1 << 20;
    const std::int64_t ofSecond = Modulo(counter, kCounterPeriod);
    return std::abs(Apart(date, date.second * kSecond + ofSecond - kMostSeconds / 2)) <=
           kMostSeconds / 2 + kFitsClosely;
}

WallOffset::WallOffset(const RawDate& date, std::int64_t elapsed) : candidates_(Candidates(date)) {
    for (std::int64_t& candidate : candidates_) {
        candidate -= elapsed;
    }
}

WallOffset::Fit WallOffset::BestFit(const RawDate& date, std::int64_t elapsed,
                                    std::int64_t leastUnseen) const {
    const std::int64_t about = (date.second * kSecond - candidates_.front() - elapsed) / kCounterPeriod;
    Fit best{0, INT64_MAX};
    for (std::int64_t unseen = std::max(leastUnseen, about - 2); unseen <= about + 2; ++unseen) {
        for (const std::int64_t offset : candidates_) {
            const std::int64_t apart = Apart(date, elapsed + unseen * kCounterPeriod + offset);
            if (std::abs(apart) < best.misfit) {
                best = {unseen, std::abs(apart)};
            }
        }
    }
    return best;
}

void WallOffset::Begin(std::int64_t elapsed) {
    for (std::int64_t& candidate : candidates_) {
        candidate += elapsed;
    }
}

void WallOffset::Unite(WallOffset& other, std::int64_t shift) {
    std::vector<std::int64_t> common;
    std::copy_if(
        candidates_.begin(), candidates_.end(), std::back_inserter(common), [&](std::int64_t offset) {
            return std::any_of(other.candidates_.begin(), other.candidates_.end(), [&](std::int64_t others) {
                return std::abs(others - shift - offset) <= kDateTakes;
            });
        });
    if (common.empty()) {
        return;
    }
    candidates_ = common;
    for (std::int64_t& offset : common) {
        offset += shift;
    }
    other.candidates_ = std::move(common);
}

std::optional<std::int64_t> WallOffset::Join(const RawDate& date, std::int64_t elapsed,
                                             std::int64_t tolerance) {
    const Fit best = BestFit(date, elapsed, 0);
    if (best.misfit > tolerance) {
        return std::nullopt;
    }
    const std::int64_t passed = elapsed + best.unseen * kCounterPeriod;
    std::erase_if(candidates_,
                  [&](std::int64_t offset) { return std::abs(Apart(date, passed + offset)) > tolerance; });
    // A date is read after its stamp, so the one that was read soonest is the truest.
    for (std::int64_t& offset : candidates_) {
        offset += std::min<std::int64_t>(0, Apart(date, passed + offset));
    }
    return best.unseen;
}

} // namespace NimaPost
