#pragma once

#include "tools/base/Output.h"
#include "tools/story/Story.h"

#include <string>
#include <vector>

namespace NimaPost {

/// The crashes of a folder for programs, the oldest first; times are absolute.
Json CrashesJson(const Story& story);
/// The same for people, a line each.
std::vector<std::string> CrashLines(const Story& story);

/// "2026-11-24 15:09:26.046886123", or seconds where nothing is dated.
std::string MomentInWords(const Axis& axis, std::int64_t time);

} // namespace NimaPost
