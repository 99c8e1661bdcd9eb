#pragma once

#include "tools/base/Output.h"
#include "tools/story/Story.h"

#include <string>
#include <vector>

namespace NimaPost {

/// A crash for programs; times are absolute.
Json CrashJson(const Crash& crash, const Story& story);
/// Those of a folder, the oldest first.
Json CrashesJson(const Story& story);
/// Those for people, a line each.
std::vector<std::string> CrashLines(const Story& story);

/// "perhaps one crash with crash.txt or crash.txt.1"; empty where a crash is surely one of its own.
std::string DoubtInWords(const Crash& crash, const Story& story);

/// Of a crash whose process is known, as `ProcessInWords` has it.
std::string ProcessOfCrash(const Crash& crash, const Story& story);

/// How far the number of a process's boot is to be trusted; null where it is known.
Json DoubtJson(const ProcessFacts& facts);

/// "2026-11-24 15:09:26.046886123", or seconds where nothing is dated.
std::string MomentInWords(const Axis& axis, std::int64_t time);
/// With its mark, and what that means; empty where nothing tells it.
std::string TimeInWords(const Crash& crash, const Axis& axis);

} // namespace NimaPost
