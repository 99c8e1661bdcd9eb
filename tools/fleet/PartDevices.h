#pragma once

#include "tools/base/Findings.h"
#include "tools/fleet/CaseData.h"
#include "tools/fleet/DeviceNames.h"
#include "tools/input/Evidence.h"
#include "tools/input/EvidenceParts.h"

#include <functional>
#include <string>

namespace NimaPost {

/// A path as somebody finds it from another folder, too.
std::string AbsolutePath(const std::string& path);

/// Hands over the devices in a part that hold evidence, until `take` returns false. What cannot be read is
/// told in `found`, and no reason to stop.
void ForEachDevice(const EvidencePart& part, const InputLimits& limits, Findings& found,
                   const std::function<bool(Device&)>& take);

/// A device's case, with what tells it from others and nothing of what is in its files.
CaseData CaseOf(Device& device, const EvidencePart& part, const DeviceNames& names);

} // namespace NimaPost
