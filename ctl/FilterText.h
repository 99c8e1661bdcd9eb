#pragma once

#include "ctl/block/TraceBlock.h"
#include "tools/base/Json.h"
#include "tools/base/Output.h"
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

/// What it means that a filter is set aside, and what can be done.
std::string SetAsideText();

/// "level 0: every component; level 1: Engine, component 7; ...", safe for a terminal.
std::string FilterText(const Filter& filter, const Names& names);
/// Prints this after a label; if it is long, in several lines.
void PrintFilter(NimaPost::Output& out, const std::string& label, const Filter& filter, const Names& names);
/// Both, a label in front of them.
void PrintFilters(NimaPost::Output& out, const std::string& label, const Filters& filters,
                  const Names& names);

/// {"words": [16 numbers], "text": "..."}
Json FilterJson(const Filter& filter, const Names& names);
/// {"live": ..., "saved": ...}
Json FiltersJson(const Filters& filters, const Names& names);

} // namespace NimaCtl
