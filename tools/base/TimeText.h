#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace NimaPost {

inline constexpr std::int64_t kDay = 86'400'000'000'000;

/// "30s", "1h30m", "500ms", "1.5" (seconds): as nanoseconds. Empty for what is no length of time.
std::optional<std::int64_t> ParseDuration(std::string_view text);

/// "2026-11-24", "2026-11-24 15:09", "2026-11-24T15:09:26.5": nanoseconds since 1970, read as if it were UTC.
std::optional<std::int64_t> ParseDate(std::string_view text);

/// "15:09", "15:09:26.5": nanoseconds since midnight.
std::optional<std::int64_t> ParseTimeOfDay(std::string_view text);

} // namespace NimaPost
