#pragma once

#include "tools/base/CounterClock.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace NimaPost {

/// The distance between microseconds of a second that leave the same 16 bits.
constexpr std::int64_t kCutMicroseconds = 65536;

/// A moment as the library dates it: local time to the second, and the low 16 bits of the microseconds.
struct RawDate {
    std::int64_t second = 0; ///< since 1970, as if local time were UTC
    std::uint32_t microsecondsCut = 0;

    /// Nanoseconds since 1970 of the earliest moment that the date can mean.
    std::int64_t Earliest() const { return second * kSecond + microsecondsCut * std::int64_t{1000}; }
    /// By how much the latest such moment is later.
    std::int64_t Spread() const {
        return (999'999 - std::int64_t{microsecondsCut}) / kCutMicroseconds * kCutMicroseconds * 1000;
    }
};

/// Fields as they are printed: years since 1900, months from 0. Empty if they are not a date.
std::optional<RawDate> MakeRawDate(std::int64_t year, std::int64_t month, std::int64_t day, std::int64_t hour,
                                   std::int64_t minute, std::int64_t second, std::int64_t subsecond);
/// "01261024150926.46886", as in a calibration line and the memory queue's file; advances past it.
std::optional<RawDate> TakeCompactDate(std::string_view& text);
/// "0126-10-24 15:54:50.16413", as in the head of a dump; advances past it.
std::optional<RawDate> TakeSpacedDate(std::string_view& text);

/// "2026-11-24 15:09:26.046886123"; the day is left out on request.
void AppendWallTime(std::string& out, std::int64_t nanosecondsSince1970, bool withDay = true);
/// "2026-11-24T15:09:26.046886123"
std::string WallTimeIso(std::int64_t nanosecondsSince1970);

/// A writer reads a line's date and stamp one after the other. On a busy device milliseconds pass in between.
/// This must stay below half of 16.96 ms, by which an unseen second shifts the cut microseconds.
inline constexpr std::int64_t kDateTakes = 5'000'000;
/// A dying process takes longer over the date and ticks of its head. The limit is the same.
inline constexpr std::int64_t kHeadTakes = 8'000'000;
/// Dates and counters of two boots fit one clock this closely once in 140 times.
inline constexpr std::int64_t kFitsClosely = 100'000;

/// Whether a wall clock seems to have begun at a whole second when the device did, as one without a battery
/// does. Its dates then fit those of any other boot. Of other clocks one in 50 seems so.
bool BeganWithTheDevice(const RawDate& date, std::int64_t counter);

/// What is known of the distance between wall clock and elapsed time: wall = elapsed + offset. One date
/// leaves about 16 possible offsets; a second date whose phase is far from the first's leaves fewer.
class WallOffset {
  public:
    /// A date and the elapsed time at which it was taken.
    WallOffset(const RawDate& date, std::int64_t elapsed);

    /// Takes a second date of the same run of the clocks into account. `elapsed` is the least time that can
    /// have passed; the result is how many whole counter periods have passed unseen in addition. Empty, with
    /// nothing changed, if no number explains both dates to within `tolerance` nanoseconds: the clock was set
    /// or the device restarted.
    std::optional<std::int64_t> Join(const RawDate& date, std::int64_t elapsed, std::int64_t tolerance);
    struct Fit {
        std::int64_t unseen = 0; ///< whole counter periods besides `elapsed`
        std::int64_t misfit = 0; ///< nanoseconds by which the dates miss each other all the same
    };
    /// The number of periods that explains a second date best. It is negative if that date is the earlier
    /// one.
    Fit Compare(const RawDate& date, std::int64_t elapsed) const { return BestFit(date, elapsed, INT64_MIN); }

    /// Takes into account that another's elapsed time began `shift` nanoseconds after this one's: both keep
    /// what they agree on.
    void Unite(WallOffset& other, std::int64_t shift);

    /// Elapsed time is to count from this moment.
    void Begin(std::int64_t elapsed);

    /// Takes what is known of the offset otherwise.
    void Pin(std::int64_t offset) { candidates_ = {offset}; }

    /// The earliest offset that agrees with all dates.
    std::int64_t Earliest() const { return candidates_.front(); }
    /// By how much wall-clock time may be later than the earliest offset says.
    std::int64_t Spread() const { return candidates_.back() - candidates_.front(); }

  private:
    Fit BestFit(const RawDate& date, std::int64_t elapsed, std::int64_t leastUnseen) const;

    std::vector<std::int64_t> candidates_; ///< nanoseconds, ascending, never empty
};

} // namespace NimaPost
