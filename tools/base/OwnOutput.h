#pragma once

#include <string_view>

namespace NimaPost {

/// How timelines that the program writes begin: as JSON, and as a Perfetto trace, whose first packet says
/// that nima-post is the tool.
inline constexpr std::string_view kTimelineBegin = "{\"traceEvents\": [";
inline constexpr std::string_view kPerfettoBegin = "\x0A\x15\x2A\x13\x12\x11\x0A\x04tool\x12\x09nima-post";

/// Whether a file was written by this program: it may then be overwritten, and it is no evidence.
inline bool IsOwnOutput(std::string_view front) {
    const bool isPage =
        front.starts_with("<!doctype html>") && front.find("<title>nima-post ") != std::string_view::npos;
    return isPage || front.starts_with(kTimelineBegin) || front.starts_with(kPerfettoBegin);
}

} // namespace NimaPost
