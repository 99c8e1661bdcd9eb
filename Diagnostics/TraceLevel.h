#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

namespace Nima::Common::System::OS::Diagnostics {

/// A level's index picks its name; its threshold (`TraceThreshold`) is compared with the effective level.
enum LevelIndex : int {
    kLevelOff,
    kLevelFatal,
    kLevelError,
    kLevelWarn,
    kLevelPerf,
    kLevelInfo,
    kLevelDebug
};

/// Stored in place and of a fixed size, so that a name is copied as one word, whatever its length.
struct LevelName {
    char text[8];
    std::size_t length;
};

/// "OFF", "FATAL", "ERROR", "WARN", "PERF", "INFO", "DEBUG".
extern const LevelName g_LevelMap[7];

/// The name of a level; an index outside the table gets the name of the nearest one inside.
const LevelName& NameOfLevel(int index);

extern constinit std::atomic<std::int32_t> g_EffectiveTraceLevel;

/// Whether a line of this threshold is written. One load and one comparison.
inline bool IsLevelWritten(int threshold) {
    return g_EffectiveTraceLevel.load(std::memory_order_relaxed) <= threshold;
}

} // namespace Nima::Common::System::OS::Diagnostics
