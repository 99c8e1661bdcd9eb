#pragma once

#include "tools/base/Findings.h"
#include "tools/base/InputFile.h"
#include "tools/rings/Rings.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace NimaPost {

/// Whether a whole file of this size and front can be the segment.
bool LooksLikeRingSegment(std::string_view front, std::uint64_t size);

/// Empty where the file is no segment or no rings were laid out; the findings say so.
std::optional<RingSet> ReadRingSegment(const InputFile& file, Findings& findings);

} // namespace NimaPost
