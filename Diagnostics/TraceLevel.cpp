#include "Diagnostics/TraceLevel.h"

#include "catalogue/Levels.h"

#include <algorithm>

#include <Diagnostics/Types.h>

namespace Nima::Common::System::OS::Diagnostics {

namespace {

constexpr LevelName NameFor(LevelIndex level) {
    const std::string_view name = Catalogue::kLevelNames[level];
    LevelName entry{{}, name.size()};
    std::copy(name.begin(), name.end(), entry.text);
    return entry;
}

static_assert(Catalogue::kLevelNames.size() == kLevelDebug + 1);

} // namespace

constexpr LevelName g_LevelMap[7] = {NameFor(kLevelOff),  NameFor(kLevelFatal), NameFor(kLevelError),
                                     NameFor(kLevelWarn), NameFor(kLevelPerf),  NameFor(kLevelInfo),
                                     NameFor(kLevelDebug)};

constinit std::atomic<std::int32_t> g_EffectiveTraceLevel{TRACE_THRESHOLD_WARN};

const LevelName& NameOfLevel(int index) {
    return g_LevelMap[std::clamp<int>(index, kLevelOff, kLevelDebug)];
}

} // namespace Nima::Common::System::OS::Diagnostics
