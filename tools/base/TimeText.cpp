#include "tools/base/TimeText.h"

#include "tools/base/CounterClock.h"
#include "tools/base/Text.h"

#include <algorithm>
#include <array>
#include <chrono>

namespace NimaPost {

namespace {

constexpr std::size_t kPlaces = 9;
/// Three centuries, so that sums of a few times stay within 64 bits.
constexpr std::int64_t kLongest = 10'000 * kDay;

/// "26", "26.5" and so on, as a whole number and billionths.
struct Decimal {
    std::int64_t whole = 0;
    std::int64_t billionths = 0;
};

std::optional<Decimal> TakeNumber(std::string_view& text) {
    Decimal number;
    if (text.empty() || !IsDigit(text.front()) || !TakeDecimal(text, number.whole)) {
        return std::nullopt;
    }
    if (TakeLiteral(text, ".")) {
        std::size_t places = 0;
        for (; !text.empty() && IsDigit(text.front()); text.remove_prefix(1), ++places) {
            number.billionths =
                places < kPlaces ? number.billionths * 10 + (text.front() - '0') : number.billionths;
        }
        for (std::size_t i = places; i < kPlaces; ++i) {
            number.billionths *= 10;
        }
        if (places == 0) {
            return std::nullopt;
        }
    }
    return number;
}

/// A field of as many digits.
bool TakeField(std::string_view& text, std::size_t digits, std::int64_t most, std::int64_t& value) {
    std::string_view field = text.substr(0, digits);
    if (field.size() < digits || !std::all_of(field.begin(), field.end(), IsDigit)) {
        return false;
    }
    text.remove_prefix(digits);
    return TakeDecimal(field, value) && value <= most;
}

struct Unit {
    std::string_view name;
    std::int64_t nanoseconds;
};

/// Longer names before those that they begin with.
constexpr std::array kUnits{Unit{"ms", 1'000'000},     Unit{"us", 1000},   Unit{"ns", 1},
                            Unit{"min", 60 * kSecond}, Unit{"s", kSecond}, Unit{"m", 60 * kSecond},
                            Unit{"h", 3600 * kSecond}, Unit{"d", kDay}};

} // namespace

std::optional<std::int64_t> ParseDuration(std::string_view text) {
    std::int64_t sum = 0;
    do {
        const auto number = TakeNumber(text);
        if (!number) {
            return std::nullopt;
        }
        const auto* unit = std::find_if(kUnits.begin(), kUnits.end(),
                                        [&](const Unit& each) { return TakeLiteral(text, each.name); });
        if (unit == kUnits.end() && !text.empty()) {
            return std::nullopt;
        }
        const std::int64_t size = unit == kUnits.end() ? kSecond : unit->nanoseconds;
        if (number->whole > kLongest / size) {
            return std::nullopt;
        }
        // Whole seconds of the unit and the rest apart, so that nothing overflows.
        sum += number->whole * size + size / kSecond * number->billionths +
               size % kSecond * number->billionths / kSecond;
        if (sum > kLongest) {
            return std::nullopt;
        }
    } while (!text.empty());
    return sum;
}

std::optional<std::int64_t> ParseTimeOfDay(std::string_view text) {
    std::int64_t hour = 0;
    std::int64_t minute = 0;
    const bool oneDigit = text.size() > 1 && text[1] == ':';
    if (!TakeField(text, oneDigit ? 1 : 2, 23, hour) || !TakeLiteral(text, ":") ||
        !TakeField(text, 2, 59, minute)) {
        return std::nullopt;
    }
    Decimal second;
    if (!text.empty()) {
        const auto number = TakeLiteral(text, ":") ? TakeNumber(text) : std::nullopt;
        if (!number || number->whole > 60 || !text.empty()) {
            return std::nullopt;
        }
        second = *number;
    }
    return (hour * 3600 + minute * 60 + second.whole) * kSecond + second.billionths;
}

std::optional<std::int64_t> ParseDate(std::string_view text) {
    std::int64_t year = 0;
    std::int64_t month = 0;
    std::int64_t day = 0;
    if (!TakeField(text, 4, 2200, year) || !TakeLiteral(text, "-") || !TakeField(text, 2, 12, month) ||
        !TakeLiteral(text, "-") || !TakeField(text, 2, 31, day)) {
        return std::nullopt;
    }
    const std::chrono::year_month_day date = std::chrono::year(static_cast<int>(year)) /
                                             std::chrono::month(static_cast<unsigned>(month)) /
                                             std::chrono::day(static_cast<unsigned>(day));
    std::optional<std::int64_t> ofDay = 0;
    if (!text.empty()) {
        ofDay = TakeLiteral(text, " ") || TakeLiteral(text, "T") ? ParseTimeOfDay(text) : std::nullopt;
    }
    if (!date.ok() || year < 1900 || !ofDay) {
        return std::nullopt;
    }
    return std::chrono::sys_days(date).time_since_epoch().count() * kDay + *ofDay;
}

} // namespace NimaPost
