#pragma once

#include "tools/commands/Commands.h"
#include "tools/log/LogFilter.h"

#include <string>

namespace NimaPost {

/// Prints the lines of a log as they come, until an interrupt.
int FollowLog(Context& context, const std::string& path, LogFilter& filter);

} // namespace NimaPost
