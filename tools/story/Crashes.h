#pragma once

#include "tools/axis/Axis.h"
#include "tools/axis/Source.h"
#include "tools/crash/CrashSource.h"
#include "tools/crash/StackTraceSource.h"
#include "tools/story/EventOrder.h"

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace NimaPost {

/// A crash that the folder tells of: a crash log, stack-trace files of one process, or both.
struct Crash {
    std::string title;
    const PlacedCrash* log = nullptr; ///< null where only stack traces tell of it
    std::vector<const StackTraceSource::Held*> stacks;
    std::vector<std::size_t> files;         ///< in the folder's files
    std::vector<std::size_t> perhapsOf;     ///< the files of the crash logs of which one may be of this death
    std::optional<std::uint32_t> processId; ///< the system's
    std::optional<std::int64_t> time;       ///< on the axis; empty where nothing dates it
    Certainty certainty;
    CrashEvidence after = CrashEvidence::kNothing; ///< what puts it after the one before
    std::optional<std::uint32_t> thread;
    std::optional<std::size_t> boot;
    std::optional<std::size_t> process;
};

/// The last events that have a time.
struct LastEvents {
    std::map<std::size_t, std::int64_t> ofFile;
    std::optional<EventOrder::Key> ofAll;
};

/// The crashes of a folder, the oldest first. States on the axis what their places rest on.
std::vector<Crash> FindCrashes(const std::vector<FolderFile>& files, const SourceSet& sources,
                               const LastEvents& lastEvents, Axis& axis);

} // namespace NimaPost
