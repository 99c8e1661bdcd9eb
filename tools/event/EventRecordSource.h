#pragma once

#include "tools/axis/Source.h"

namespace NimaPost {

/// Event records in a folder. They hold no time; where a ring tells of the one call that handed the event
/// over, it is the time of that.
Source& EventRecords(SourceSet& set);

} // namespace NimaPost
