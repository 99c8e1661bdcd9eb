#pragma once

#include "tools/base/Findings.h"
#include "tools/base/Output.h"

#include <vector>

namespace NimaPost {

/// [{"code": "torn-record", "sentence": "1 torn record: ..."}, ...]
Json FindingsJson(const std::vector<Finding>& findings);
/// {"damage": [...], "remarks": [...]}
Json FindingsJson(const Findings& findings);

} // namespace NimaPost
