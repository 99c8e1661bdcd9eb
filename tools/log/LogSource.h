#pragma once

#include "tools/axis/Source.h"

namespace NimaPost {

/// Text logs in a folder, the memory queue's among them.
Source& TextLogs(SourceSet& set);

} // namespace NimaPost
