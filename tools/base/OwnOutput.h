#pragma once

#include <cstddef>
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

/// Whether a file is a database of `nima-post index`, which is no evidence either.
inline bool IsOwnDatabase(std::string_view front) {
    using namespace std::string_view_literals;
    constexpr std::size_t kApplicationAt = 68;
    return front.starts_with("SQLite format 3\0"sv) && front.size() > kApplicationAt &&
           front.substr(kApplicationAt).starts_with("Nima");
}

} // namespace NimaPost
