#pragma once

#include "tools/base/Certainty.h"

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string_view>

namespace NimaPost {

/// In the order in which the kinds are handed over.
enum class EventKind : unsigned char { kText, kBinary, kRing, kRecord, kCount };
inline constexpr auto kEventKinds = static_cast<std::size_t>(EventKind::kCount);

/// The mark of a line that its log was writing over.
inline constexpr std::string_view kOverwritten = "overwritten";

/// Something that happened, from whichever file. The views hold until the visitor returns.
struct TimelineEvent {
    EventKind kind = EventKind::kText;
    std::optional<std::int64_t> time; ///< on the axis; empty if nothing says when it was
    /// Then: of what it stands in front of, if that is known.
    std::optional<std::int64_t> place;
    Certainty certainty;
    std::size_t file = 0; ///< in the folder's files
    std::optional<std::uint32_t> thread;
    /// From 1, as the axis numbers them; empty if nothing shows it.
    std::optional<std::size_t> boot;
    std::optional<std::size_t> process;
    /// How often its log shows that the wall clock was set before, while the process ran; empty if no log
    /// tells.
    std::optional<std::size_t> clock;
    std::string_view level; ///< "WARN", "level 1"; empty if there is none
    std::string_view name;  ///< tracer, component, ring or an event's source
    std::string_view text;  ///< in words, with its arguments
    std::span<const std::uint32_t> arguments;
    std::string_view mark;  ///< `kOverwritten`, or in which state a binary record is; mostly empty
    std::string_view line;  ///< of a text log as it stands there; else empty
    bool continued = false; ///< a line that belongs to the message before

    /// Where it stands on the axis.
    std::optional<std::int64_t> Place() const { return time ? time : place; }
    /// Of a text log: what is left of a message whose header is lost.
    bool IsRest() const { return kind == EventKind::kText && !thread; }
};

/// Returns false to end the visit.
using EventVisitor = std::function<bool(const TimelineEvent&)>;

} // namespace NimaPost
