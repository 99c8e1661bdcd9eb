#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace NimaPost {

/// An expression that is found in several lines at once if the given one is found in any of them by itself,
/// and that never looks beyond the end of a line. It may be found where the other is not: what looks at a
/// line's ends is left out. Empty for an expression of which that cannot be said at a glance.
std::optional<std::string> ForManyLines(std::string_view expression);

} // namespace NimaPost
