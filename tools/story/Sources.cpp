#include "tools/story/Sources.h"

#include "tools/crash/CrashSource.h"
#include "tools/crash/StackTraceSource.h"
#include "tools/event/EventRecord.h"
#include "tools/event/EventRecordSource.h"
#include "tools/log/LogLine.h"
#include "tools/log/LogSource.h"
#include "tools/rings/RingSource.h"
#include "tools/rings/RingText.h"
#include "tools/rings/Segment.h"
#include "tools/story/Collection.h"
#include "tools/systrace/SysTrace.h"
#include "tools/systrace/SysTraceSource.h"

#include <algorithm>
#include <array>

namespace NimaPost {

namespace {

/// Turns a test of the front alone into one that is given the size as well.
template <bool (*kTest)(std::string_view)>
bool ByFront(std::string_view front, std::uint64_t /*size*/) {
    return kTest(front);
}

template <LogKind kKind>
bool IsLog(std::string_view front, std::uint64_t /*size*/) {
    return LogKindOf(front) == kKind;
}

/// A row for each kind of file, those with the surest marks first: lines of a log may stand in other files.
constexpr std::array kRows{
    SourceRow{"manifest", "log", ByFront<LooksLikeManifest>, SourceOf<ManifestSource>, false},
    SourceRow{"binary trace", "systrace", ByFront<LooksLikeSysTrace>, BinaryTraces},
    SourceRow{"crash log", "ring", ByFront<LooksLikeCrashLog>, SourceOf<CrashSource>},
    SourceRow{"ring dump", "ring", ByFront<LooksLikeRingText>, SourceOf<RingSource>},
    SourceRow{"stack trace", "log", ByFront<LooksLikeStackTrace>, SourceOf<StackTraceSource>},
    SourceRow{"event record", "log", ByFront<LooksLikeEventRecord>, EventRecords},
    SourceRow{"ring segment", "ring", LooksLikeRingSegment, SourceOf<RingSource>},
    SourceRow{"text log", "log", IsLog<LogKind::kLines>, TextLogs},
    SourceRow{"memory queue's log", "log", IsLog<LogKind::kQueue>, TextLogs},
};

} // namespace

const SourceRow* Recognise(std::string_view front, std::uint64_t size) {
    const auto* row = std::find_if(kRows.begin(), kRows.end(),
                                   [&](const SourceRow& each) { return each.recognise(front, size); });
    return row != kRows.end() ? row : nullptr;
}

} // namespace NimaPost
