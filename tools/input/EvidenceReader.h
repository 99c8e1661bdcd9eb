#pragma once

#include "tools/input/Evidence.h"
#include "tools/input/InputLimits.h"

#include <string>
#include <vector>

namespace NimaPost {

/// Finds the files that arguments lead to: folders and archives hold them, every folder and archive in these
/// being a device of its own, and files stand for themselves; "-" is standard input. Archives are unpacked
/// into memory and files without names; what they call their members leads nowhere. With `backups`, those of
/// a named file ("NAME.1" and so on, compressed or not) are taken in as well.
Evidence ReadEvidence(const std::vector<std::string>& arguments, const InputLimits& limits,
                      bool backups = false);

} // namespace NimaPost
