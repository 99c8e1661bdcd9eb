#pragma once

#include <array>
#include <string_view>

namespace Nima::Catalogue {

/// The levels of text logs as lines show them, by index. Nothing is written at the first.
inline constexpr std::array<std::string_view, 7> kLevelNames{"OFF",  "FATAL", "ERROR", "WARN",
                                                             "PERF", "INFO",  "DEBUG"};

} // namespace Nima::Catalogue
