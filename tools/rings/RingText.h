#pragma once

#include "tools/base/Findings.h"
#include "tools/rings/Rings.h"

#include <cstdint>
#include <optional>
#include <string_view>

namespace NimaPost {

bool LooksLikeRingText(std::string_view front);
/// Whether a text contains a dump of the rings.
bool HoldsRingText(std::string_view text);

/// Reads a text dump of either kind: headings with names or with indices.
std::optional<RingSet> ReadRingText(std::string_view text, Findings& findings);

/// Reads the rings of a dump. `text` begins after the mark that begins the dump, in a crash log for example,
/// and is read up to the mark that ends it.
void ReadRingLines(std::string_view text, RingSet& set, Findings& findings);

/// The head of every text dump and crash log: "Crash Date/Time: ...", "Ticks: ...".
void ReadDumpHead(std::string_view text, std::optional<RawDate>& date, std::optional<std::int64_t>& ticks);

} // namespace NimaPost
