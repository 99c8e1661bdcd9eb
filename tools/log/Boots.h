#pragma once

#include "tools/log/JoinedLogs.h"
#include "tools/log/LogParts.h"
#include "tools/log/LogProcess.h"
#include "tools/log/TimePlacer.h"

#include <cstddef>
#include <vector>

namespace NimaPost {

/// Finds the processes that wrote one log from its placed parts, sets each part's `process`, and weighs what
/// tells whether each ran in the boot of the one before. They are appended in the order of the log.
void FindProcesses(std::size_t log, std::vector<LogPart>& parts, const std::vector<LogRun>& runs,
                   std::vector<LogProcess>& processes);

/// Numbers the boots of all logs. Processes of several logs belong to one boot where their dates fit one
/// clock closely, or where they ran at the same time and their clocks do not contradict it; within a log,
/// order and evidence decide.
void NumberBoots(std::vector<LogProcess>& processes, const JoinedLogs& joined);

} // namespace NimaPost
