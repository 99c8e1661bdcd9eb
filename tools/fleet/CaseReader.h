#pragma once

#include "tools/fleet/CaseData.h"
#include "tools/input/Evidence.h"
#include "tools/names/Names.h"

#include <string>

namespace NimaPost {

/// A hash of a device's files, by their names and bytes.
std::string ContentOf(Device& device);

/// Reads a device's files into `data`, whose first members are set. False, with the reason, where nothing can
/// be read.
bool ReadCase(Device& device, const Names& names, CaseData& data, std::string& problem);

} // namespace NimaPost
