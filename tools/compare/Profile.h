#pragma once

#include "tools/axis/TimelineEvent.h"

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <unordered_map>
#include <utility>

namespace NimaPost {

/// A message with "#" for each of its numbers: decimal, hexadecimal, or parts of an identifier in which there
/// are digits.
std::string WithoutNumbers(std::string_view message);

/// What is said again and again, apart from its numbers.
struct Saying {
    EventKind kind = EventKind::kText;
    std::string level;
    std::string name;    ///< tracer, component, ring or source
    std::string message; ///< empty for all that this name says

    bool operator<(const Saying& other) const {
        return std::tie(kind, name, level, message) <
               std::tie(other.kind, other.name, other.level, other.message);
    }
};

/// What a device said, and how often.
class Profile {
  public:
    /// Takes only what is from `begin` on and before `end`, where these are given.
    explicit Profile(std::optional<std::int64_t> begin = {}, std::optional<std::int64_t> end = {})
        : begin_(begin), end_(end) {}

    void Take(const TimelineEvent& event);

    /// By message, and everything of a name as well.
    std::map<Saying, std::uint64_t> Counts() const;
    std::uint64_t Records() const { return records_; }
    /// Whether there were so many messages that later ones were left out.
    bool IsCut() const { return cut_; }
    /// How long the device was seen at work: of each boot, or of a process of an unknown one, from the first
    /// record to the last. At least a second.
    double Seconds() const;

  private:
    struct Stretch {
        std::int64_t first;
        std::int64_t last;
    };

    void Count(const TimelineEvent& event, std::string_view message);

    std::optional<std::int64_t> begin_;
    std::optional<std::int64_t> end_;
    std::unordered_map<std::string, std::uint64_t> counts_; ///< by the parts of a saying, with zeros between
    std::string key_;
    std::map<std::pair<bool, std::size_t>, Stretch> stretches_;
    std::uint64_t records_ = 0;
    bool cut_ = false;
};

} // namespace NimaPost
