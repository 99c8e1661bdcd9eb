#pragma once

#include "tools/base/InputFile.h"
#include "tools/input/EvidenceStore.h"

namespace NimaPost {

/// Names standard input among the arguments of a call.
inline constexpr const char* kStandardInput = "-";

/// Reads standard input to its end: nearly everything is read twice, and a zip archive from its end. What
/// stops that is reported.
InputFile ReadStandardInput(EvidenceStore& store);

} // namespace NimaPost
