#pragma once

#include "ctl/block/Steering.h"
#include "tools/names/Names.h"

#include <string>
#include <vector>

namespace NimaCtl {

using NimaPost::Names;

/// Components and levels are given by number or name, or as "all". These return false, with a reason, for
/// what is neither.

/// Opens or closes a level of a component.
bool AddLevel(const Names& names, const std::string& component, const std::string& level,
              FilterChange& change, bool off, std::string& problem);

/// Opens what "COMPONENT:LEVEL" words mean.
bool OpenPairs(const Names& names, const std::vector<std::string>& words, FilterChange& change,
               std::string& problem);

} // namespace NimaCtl
