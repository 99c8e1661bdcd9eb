#include "Diagnostics/TraceLevel.h"

#include <algorithm>

#include <Diagnostics/Types.h>

namespace Nima::Common::System::OS::Diagnostics {

const LevelName g_LevelMap[7] = {
    {"OFF", 3}, {"FATAL", 5}, {"ERROR", 5}, {"WARN", 4}, {"PERF", 4}, {"INFO", 4}, {"DEBUG", 5},
};

constinit std::atomic<std::int32_t> g_EffectiveTraceLevel{TRACE_THRESHOLD_WARN};

const LevelName& NameOfLevel(int index) {
    return g_LevelMap[std::clamp<int>(index, kLevelOff, kLevelDebug)];
}

} // namespace Nima::Common::System::OS::Diagnostics
