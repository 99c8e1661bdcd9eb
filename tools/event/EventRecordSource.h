#pragma once

#include "tools/axis/Source.h"

namespace NimaPost {

/// Event records in a folder. They hold no time. If a ring shows the one call that handed the event over, the
/// record gets the time of that call.
Source& EventRecords(SourceSet& set);

} // namespace NimaPost
