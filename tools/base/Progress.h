#pragma once

#include <cstdint>
#include <string_view>

/// How far the reading of a file has come, as a bar on a terminal's standard error once a program has run for
/// two seconds. One for the whole process; nothing is shown unless that is allowed.
namespace NimaPost::Progress {

/// Shows bars from now on, if standard error is a terminal: those of this thread, while others read as well.
void Allow();
void Note(std::string_view file, std::uint64_t done, std::uint64_t size);
/// To be called before anything else is written to the terminal.
void Clear();

} // namespace NimaPost::Progress
