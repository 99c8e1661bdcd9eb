#pragma once

#include "ctl/block/TraceBlock.h"
#include "tools/base/Json.h"
#include "tools/names/Names.h"

#include <string>
#include <string_view>

namespace NimaCtl {

using NimaPost::Json;
using NimaPost::Names;

/// "on", "off", "cleared", "partly cleared".
std::string_view FilteringName(Filtering state);
/// The same with what it means.
std::string_view FilteringText(Filtering state);

/// "level 0: every component; level 1: Engine, component 7; ...", safe for a terminal.
std::string FilterText(const Filter& filter, const Names& names);
/// {"words": [16 numbers], "text": "..."}
Json FilterJson(const Filter& filter, const Names& names);

} // namespace NimaCtl
