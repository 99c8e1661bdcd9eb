#pragma once

#include "tools/base/Findings.h"
#include "tools/base/InputFile.h"
#include "tools/rings/Rings.h"

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include <Diagnostics/Formats.h>

namespace NimaPost {

/// The fields of the directory, without the unused rest of its page.
inline constexpr std::size_t kDirectoryFields = offsetof(RingDirectory, unused);

/// Whether a file of this size, beginning with these bytes, can be the segment.
bool LooksLikeRingSegment(std::string_view front, std::uint64_t size);

/// Empty if the file is no segment or no rings were laid out; the findings say so.
std::optional<RingSet> ReadRingSegment(const InputFile& file, Findings& findings);

} // namespace NimaPost
