#include "tools/systrace/Assembler.h"

#include "tools/base/CounterClock.h"
#include "tools/systrace/Drafts.h"
#include "tools/systrace/Judgement.h"

#include <algorithm>
#include <optional>

namespace NimaPost {

namespace {

void TakeThreads(SysTraceFile& trace) {
    for (SysTraceRecord& record : trace.records) {
        if (record.state == RecordState::kWhole && record.values > 0) {
            --record.values;
            record.thread = trace.values[record.firstValue + record.values];
            record.hasThread = true;
        }
    }
}

void RecoverTimes(SysTraceFile& trace) {
    // Processes share the block, and their main threads may share an identifier.
    CounterClock clock({kSecond / 10, kSecond / 1000});
    for (SysTraceRecord& record : trace.records) {
        // A record without any value may be an entry of the previous round that nobody has overwritten.
        if (record.state == RecordState::kTorn && record.values == 0 && clock.Started()) {
            record.elapsed = clock.Near(record.stamp);
        } else {
            record.elapsed =
                clock.Next(record.stamp, record.hasThread ? std::optional(record.thread) : std::nullopt);
        }
    }
    trace.clockBreaks = clock.Breaks();
}

/// A dump is taken while others write: what they had begun lacks its end.
void CountUnfinished(SysTraceFile& trace, const Drafts& drafts, const std::vector<std::uint32_t>& lacking) {
    if (!trace.isDump || trace.records.empty()) {
        return;
    }
    const std::int64_t since = trace.records.back().elapsed - kLongestHold;
    const auto first = std::find_if(trace.records.begin(), trace.records.end(),
                                    [&](const SysTraceRecord& record) { return record.elapsed >= since; });
    const auto index = static_cast<std::uint32_t>(first - trace.records.begin());
    const auto late = [&](std::uint32_t record) { return record >= index; };
    trace.unfinished = static_cast<std::uint64_t>(std::count_if(lacking.begin(), lacking.end(), late));
    const auto& never = drafts.NeverStored();
    trace.unfinishedEntries = static_cast<std::uint64_t>(std::count_if(
        never.begin(), never.end(), [&](std::uint32_t at) { return at > drafts[index].position; }));
}

} // namespace

void AssembleSysTrace(SysTraceFile& trace, const ClaimedEntries& claimed, const Names& names) {
    const Drafts drafts(trace, claimed, names);
    const std::vector<std::uint32_t> lacking = JudgeRecords(trace, drafts);
    trace.neverStored = drafts.NeverStored().size();
    if (drafts.ThreadEntries()) {
        TakeThreads(trace);
    }
    RecoverTimes(trace);
    CountUnfinished(trace, drafts, lacking);
}

} // namespace NimaPost
