#pragma once

#include "tools/base/Descriptor.h"
#include "tools/base/Findings.h"

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <Diagnostics/Formats.h>

namespace NimaCtl {

/// The rings of a directory, read from outside: the file is opened for reading and never mapped, since the
/// library's own look at another process's rings may cut it at any moment.
struct RingsView {
    NimaPost::Descriptor file;
    std::uint32_t processId = 0; ///< the last that laid the rings out
    std::array<std::uint32_t, RING_COUNT> entryCounts{};
    std::array<std::vector<RingBufferData>, RING_COUNT> records; ///< in slot order, up to the first empty one
    std::uint64_t missing = 0;                                   ///< records that the file has been cut by
};

/// Adds the damage of a segment that is cut.
void AddMissing(const RingsView& rings, NimaPost::Findings& findings);

/// Empty if there are no rings to read; `problem` then says why.
std::optional<RingsView> ReadRings(const std::string& directory, std::string& problem);

} // namespace NimaCtl
