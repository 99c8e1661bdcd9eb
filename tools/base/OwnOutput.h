#pragma once

#include <string_view>

namespace NimaPost {

/// How a timeline that the program writes begins.
inline constexpr std::string_view kTimelineBegin = "{\"traceEvents\": [";

/// Whether a file was written by this program: it may then be overwritten, and it is no evidence.
inline bool IsOwnOutput(std::string_view front) {
    const bool isPage =
        front.starts_with("<!doctype html>") && front.find("<title>nima-post ") != std::string_view::npos;
    return isPage || front.starts_with(kTimelineBegin);
}

} // namespace NimaPost
