#pragma once

#include "tools/axis/Source.h"

namespace NimaPost {

/// Binary traces in a folder: the segment and dumps of it.
Source& BinaryTraces(SourceSet& set);

} // namespace NimaPost
