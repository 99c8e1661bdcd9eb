#pragma once

#include "tools/axis/Processes.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace NimaPost {

/// The moments of what was read from which others can be counted, as times that are shown.
struct Landmarks {
    bool hasWall = false; ///< times are dates of the device, else they count from its first line or record
    std::optional<std::int64_t> first;
    std::optional<std::int64_t> last;
    std::vector<std::optional<std::int64_t>> crashes; ///< the oldest first
    std::map<std::size_t, std::int64_t> boots;        ///< when each began, by number

    void Widen(std::int64_t time);
};

/// When each boot of these processes began, as far as that is known.
std::map<std::size_t, std::int64_t> BeginningsOf(const Processes& processes);

/// A moment as a user names it: a date, a time of day, or an anchor with a distance, "crash=2-30s".
class TimeBound {
  public:
    /// Empty, with the reason, for what is none.
    static std::optional<TimeBound> Parse(const std::string& text, std::string& problem);

    /// Whether the first and last time have to be known.
    bool NeedsEnds() const;
    /// Empty, with the reason, where what was read has no such moment. A time of day is that of the first day
    /// on which it is not before `after`, or else of the last one that was seen.
    std::optional<std::int64_t> Find(const Landmarks& landmarks, std::optional<std::int64_t> after,
                                     std::string& problem) const;

  private:
    enum class Kind : unsigned char { kDate, kTimeOfDay, kCrash, kBoot, kStart, kEnd };

    TimeBound(std::string text, Kind kind) : text_(std::move(text)), kind_(kind) {}
    static std::optional<TimeBound> ParseAnchor(const std::string& text);
    std::optional<std::int64_t> FindAnchor(const Landmarks& landmarks, std::string& problem) const;
    std::optional<std::int64_t> FindCrash(const Landmarks& landmarks, std::string& problem) const;
    std::optional<std::int64_t> FindBoot(const Landmarks& landmarks, std::string& problem) const;

    std::string text_;
    Kind kind_;
    std::int64_t time_ = 0;             ///< the date or the time of day; of an anchor the distance from it
    std::optional<std::size_t> number_; ///< of a crash or boot; empty for the newest
};

} // namespace NimaPost
